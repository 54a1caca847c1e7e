#include "app/play/PlayCommands.h"
#include "app/play/Player.h"
#include "app/session/Complaints.h"
#include "app/session/FileTests.h"
#include "app/session/Listen.h"
#include "app/session/RecordOptions.h"
#include "app/session/ReplayHost.h"
#include "app/session/Session.h"
#include "app/session/SessionOptions.h"
#include "app/terminal/SignalWatch.h"
#include "formats/text/InputError.h"
#include "formats/text/Printable.h"
#include "gateway/Gateway.h"
#include "gateway/http/Access.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKMemory.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace gk::app {

namespace {

constexpr const char* kMaxSpeed = "max";
/// Where a recording is served unless somebody says otherwise, and how many ports are tried.
constexpr int kFirstPort = 8091;
constexpr int kPorts = 100;

struct PlayOptions {
  std::vector<std::string> files;
  std::vector<std::string> libraries;
  std::vector<std::string> subscribe;
  ListenOptions listen;
  std::optional<double> start;
  std::string speed = "1";
  bool isPaused = false;
};

std::optional<double> speedOf(const std::string& text) {
  if (text == kMaxSpeed) {
    return 0;
  }
  const std::optional<double> number = messages::parseDouble(text);
  const bool isSpeed = number && *number >= Player::kSlowest && *number <= Player::kFastest;
  return isSpeed ? number : std::nullopt;
}

std::string checkPlaySpeed(const std::string& text) {
  return speedOf(text) ? std::string()
                       : fmt::format("{} is neither max nor a number from {} to {}", text,
                                     Player::kSlowest, Player::kFastest);
}

/// A recording that goes when it is of no more use.
class TemporaryRecording {
public:
  TemporaryRecording()
      : fPath(std::filesystem::temp_directory_path() / fmt::format("gk-play-{}.mcap", getpid())) {}
  ~TemporaryRecording() {
    std::error_code ignored;
    std::filesystem::remove(fPath, ignored);
  }
  TemporaryRecording(const TemporaryRecording&) = delete;
  TemporaryRecording& operator=(const TemporaryRecording&) = delete;

  std::string path() const { return fPath; }

private:
  const std::filesystem::path fPath;
};

/// Runs files through the library into a recording. Returns the exit code.
int runInto(const PlayOptions& options, const std::string& recording) {
  SessionOptions session;
  session.files = options.files;
  session.libraries = options.libraries;
  session.subscribe = options.subscribe;
  session.isQuiet = true;
  const FileTests tests = readFileTests(session.files, true);
  applyFileOptions(tests, session);
  const runtime::HostOptions host = replayHost(session, tests, false);
  SessionView view;
  view.hasProgressBar = true;
  RecordOptions record;
  record.file = recording;
  record.isOverwriting = true;
  view.record = recorderOptions(record, host);
  fmt::print(stderr, "running what is no recording through the library first\n");
  return runSession(session, host, view);
}

/// One recording that viewers can be shown as it is.
bool isPlayable(const std::vector<std::string>& files) {
  return files.size() == 1 && files.front().ends_with(".mcap") &&
         RunTape(files.front()).hasChannels();
}

/// Listens where it was asked to, else at the first free port. Raises `AccessError`.
Listening listenFor(const PlayOptions& options, const std::shared_ptr<Player>& player) {
  ListenOptions listen = options.listen;
  const bool isGiven = std::exchange(listen.isAddressGiven, true);
  for (int port = kFirstPort;; ++port) {
    if (!isGiven) {
      listen.address = fmt::format("127.0.0.1:{}", port);
    }
    try {
      return startGateway(listen, {}, {}, player);
    } catch (const gateway::AccessError& error) {
      if (isGiven || !error.isAddressTaken() || port >= kFirstPort + kPorts) {
        throw;
      }
    }
  }
}

/// Waits until somebody ends it.
class Ending {
public:
  void ask() {
    const std::lock_guard lock(fMutex);
    fIsAsked = true;
    fAsked.notify_all();
  }
  void wait() {
    std::unique_lock lock(fMutex);
    fAsked.wait(lock, [this] { return fIsAsked; });
  }

private:
  std::mutex fMutex;
  std::condition_variable fAsked;
  bool fIsAsked = false;
};

/// The memory service of a host without any module.
class PlayedMemory {
public:
  PlayedMemory() {
    GK::GKBrokerManager::setInstance(fManager);
    fBroker = boost::make_shared<GK::GKBroker>("gk", fManager);
    fManager->addBroker(fBroker);
    fMemory = boost::make_shared<GK::GKMemory>(fBroker, std::make_shared<GK::GKMemoryStore>());
    fMemory->initModule();
  }
  ~PlayedMemory() {
    fMemory.reset();
    fBroker->shutdown();
    fBroker.reset();
    GK::GKBrokerManager::setInstance(nullptr);
  }
  PlayedMemory(const PlayedMemory&) = delete;
  PlayedMemory& operator=(const PlayedMemory&) = delete;

  const boost::shared_ptr<GK::GKBroker>& broker() const noexcept { return fBroker; }
  const boost::shared_ptr<GK::GKMemory>& memory() const noexcept { return fMemory; }

private:
  const boost::shared_ptr<GK::GKBrokerManager> fManager = boost::make_shared<GK::GKBrokerManager>();
  boost::shared_ptr<GK::GKBroker> fBroker;
  boost::shared_ptr<GK::GKMemory> fMemory;
};

void serve(const PlayOptions& options, const std::string& recording) {
  PlayerStart start;
  start.time = options.start ? messages::toMicros(*options.start) : std::nullopt;
  start.speed = speedOf(options.speed).value_or(1);
  start.isPaused = options.isPaused;
  Ending ending;
  const SignalWatch watch([&ending](const EndWish&) { ending.ask(); }, std::nullopt);
  const auto player = std::make_shared<Player>(recording, start);
  GK::GKClock::install(player->clock());
  {
    // Outlives the memory service, whose end waits for the calls of clients.
    const Listening listening = listenFor(options, player);
    const PlayedMemory played;
    player->begin(played.memory());
    listening.gateway->open(played.broker());
    const gateway::PlaybackState state = player->state();
    constexpr double perSecond = 1e6;
    fmt::print(stderr, "playing {}, {:.1f} s\n{}\nCtrl-C ends it\n",
               formats::printable(fmt::format("{}", fmt::join(options.files, ", "))),
               static_cast<double>(state.end - state.begin) / perSecond, listening.text);
    ending.wait();
    listening.gateway->close();
    player->stop();
  }
  GK::GKClock::install(nullptr);
}

int play(const PlayOptions& options) {
  blockWatchedSignals();
  zu::log::setConsoleLevel(0);
  try {
    if (isPlayable(options.files)) {
      serve(options, options.files.front());
      return kSuccess;
    }
    const TemporaryRecording temporary;
    if (const int code = runInto(options, temporary.path()); code != kSuccess) {
      return code;
    }
    serve(options, temporary.path());
    return kSuccess;
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
  } catch (const messages::FormatError& error) {
    complain(error.what());
  } catch (const gateway::AccessError& error) {
    complain(error.what());
  }
  return kBadInput;
}

} // namespace

void addPlayCommand(const Command& program) {
  const Command command = program.subcommand(
      "play", "Play a finished run back to the page and to viewers, as if it happened now");
  auto options = std::make_shared<PlayOptions>();
  command
      .option("FILE", options->files,
              "A recording; anything else is run through the module library first")
      .required()
      .shows("...");
  command
      .option("--library", options->libraries,
              "What is no recording is run through this library instead of ours")
      .shows("FILE")
      .onceEach();
  command
      .option("--subscribe", options->subscribe,
              "What is no recording is run with this extractor subscribed to")
      .shows("MODULE")
      .onceEach();
  command.section("Time");
  command.option("--start", options->start, "Begin at this time of the run")
      .within(0.0, 1e9)
      .shows("SECONDS");
  command.option("--speed", options->speed, "How fast: 0.5, 1, 10, or max")
      .checked(checkPlaySpeed)
      .shows("X|max")
      .showsDefault();
  command.flag("--paused", options->isPaused, "Wait for somebody to start it");
  command.section("Clients");
  command
      .option(
          "--listen", options->listen.address,
          "Serve at this address; port 0 takes a free one. Otherwise 127.0.0.1:8091 or the next "
          "free port")
      .shows("ADDRESS:PORT")
      .whenGiven([options = options.get()] { options->listen.isAddressGiven = true; });
  command
      .option("--token-file", options->listen.tokenFile,
              "Clients must know the token in this file (mode 0600); needed for addresses that "
              "others can reach")
      .shows("FILE");
  command
      .option("--allow-host", options->listen.hosts,
              "A further name under which clients may address this host")
      .shows("NAME")
      .onceEach();
  command
      .option("--allow-origin", options->listen.origins,
              "A further origin whose pages may connect, such as https://viewer.example")
      .shows("ORIGIN")
      .onceEach();
  command.does([options] { return play(*options); });
}

} // namespace gk::app
