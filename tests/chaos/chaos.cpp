// Clients of every kind do whatever they like with a host that records: it must go on ticking and
// answering, keep nothing of theirs, end in order while they are at it, and what it has recorded
// must happen again.
// Usage: gateway_chaos GK [SECONDS [CLIENTS [SEED]]] [--growth=MIB] [--end=MS]
// --growth: MiB that the host may grow by, 8 if not said.
// --end: how long its end may take, 1000 if not said: the time that people are told, on a machine
// that does nothing else.
// Ends with exit code 1 when anything of that does not hold. The same seed brings the same clients.

#include "chaos/Storm.h"
#include "support/Environment.h"
#include "support/Program.h"

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>

namespace {

using gk::chaos::Storm;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runProgram;
using gk::test::TemporaryFolder;
using Clock = std::chrono::steady_clock;

/// How long a host may take to get rid of clients that have gone: 128 calls may run, and one that
/// switches the sonar on or off takes a second, one after the other.
constexpr std::chrono::seconds kSettling{400};
/// For how long it is looked at to see how many descriptors it keeps.
constexpr std::chrono::milliseconds kLook{500};
/// Between two looks whether it has. Each takes a port that cannot be had again for a minute, and
/// there are 28,000 of them.
constexpr int kBetweenLooks = 50;
/// Clients a second, at most, for the same reason.
constexpr std::uint64_t kRate = 400;

struct Options {
  std::string gk;
  unsigned seconds = 20;
  std::size_t clients = 200;
  std::uint64_t seed = 1;
  /// Bytes that the clients of the later rounds may add to the memory that the first ones needed.
  std::size_t growth = 8U << 20U;
  std::chrono::milliseconds end{1000};
};

int failures = 0;

void expect(bool holds, const std::string& what) {
  std::printf("%s  %s\n", holds ? "ok  " : "FAIL", what.c_str());
  std::fflush(stdout);
  failures += holds ? 0 : 1;
}

/// The host, and what can be seen of it from outside.
class Host {
public:
  Host(const Options& options, const TemporaryFolder& folder)
      : fProgram({options.gk, "run", "--listen", "127.0.0.1:0", "--record", folder.file("run.mcap"),
                  "--record-patience", "30", "--out", folder.file("live.jsonl"), "--only",
                  "event,micro", "--subscribe", "GKSonar", "--log-level", "0"}) {
    const std::string before = "listening at http://127.0.0.1:";
    fProgram.runUntil([this] { return fProgram.errSoFar().find("/\n") != std::string::npos; });
    const std::string text = fProgram.errSoFar();
    fPort = static_cast<std::uint16_t>(std::stoi(text.substr(text.find(before) + before.size())));
  }

  std::uint16_t port() const { return fPort; }
  std::string address() const { return "127.0.0.1:" + std::to_string(fPort); }
  bool hasEnded() const { return fProgram.hasEnded(); }

  /// The body of an answer; empty when there is none within a minute.
  std::string get(const std::string& target) const {
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{60, 0};
    setsockopt(made, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(fPort);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string text;
    if (connect(made, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0) {
      const std::string asked =
          "GET " + target + " HTTP/1.1\r\nHost: " + address() + "\r\nConnection: close\r\n\r\n";
      send(made, asked.data(), asked.size(), MSG_NOSIGNAL);
      char bytes[65536];
      for (ssize_t count = 0; (count = recv(made, bytes, sizeof bytes, 0)) > 0;) {
        text.append(bytes, static_cast<std::size_t>(count));
      }
    }
    close(made);
    const std::size_t body = text.find("\r\n\r\n");
    return body == std::string::npos ? std::string() : text.substr(body + 4);
  }

  /// A number of the host's description; nothing when it does not answer.
  std::optional<std::uint64_t> figure(const std::string& name) const {
    return figureIn(get("/api/v1/host"), name);
  }
  static std::optional<std::uint64_t> figureIn(const std::string& text, const std::string& name) {
    const std::size_t place = text.find("\"" + name + "\":");
    return place == std::string::npos
               ? std::nullopt
               : std::optional(std::stoull(text.substr(place + name.size() + 3)));
  }

  /// Waits until everybody has gone and all calls have returned.
  bool settle() const {
    const Clock::time_point limit = Clock::now() + kSettling;
    std::string text;
    while (Clock::now() < limit) {
      text = get("/api/v1/host");
      if (figureIn(text, "connections") == 1 && figureIn(text, "callsRunning") == 0) {
        return true;
      }
      poll(nullptr, 0, kBetweenLooks);
    }
    std::printf("%s\n", text.empty() ? "no answer" : text.c_str());
    return false;
  }

  std::size_t descriptors() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(proc("fd"))) {
      ++count;
    }
    return count;
  }
  /// Descriptors that it keeps, at rest: who has got the last answer is closed a moment later.
  std::size_t descriptorsKept() const {
    std::size_t least = descriptors();
    for (const Clock::time_point end = Clock::now() + kLook; Clock::now() < end;) {
      std::this_thread::yield();
      least = std::min(least, descriptors());
    }
    return least;
  }
  /// Bytes of its own in memory.
  std::size_t memory() const {
    std::size_t pages = 0;
    std::size_t resident = 0;
    std::istringstream(readFile(proc("statm"))) >> pages >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  }

  void end() const { kill(fProgram.pid(), SIGTERM); }
  ProgramResult wait() { return fProgram.wait(); }

private:
  std::string proc(const std::string& file) const {
    return "/proc/" + std::to_string(fProgram.pid()) + "/" + file;
  }

  Program fProgram;
  std::uint16_t fPort = 0;
};

/// The first line in which two outputs differ, empty when they are the same.
std::string firstDifference(const std::string& one, const std::string& other) {
  std::istringstream left(readFile(one));
  std::istringstream right(readFile(other));
  std::string ours;
  std::string theirs;
  for (int line = 1;; ++line) {
    const bool hasOurs = static_cast<bool>(std::getline(left, ours));
    const bool hasTheirs = static_cast<bool>(std::getline(right, theirs));
    if (!hasOurs && !hasTheirs) {
      return {};
    }
    if (hasOurs != hasTheirs || ours != theirs) {
      return "line " + std::to_string(line) + ": " + (hasOurs ? ours.substr(0, 300) : "(end)") +
             " and " + (hasTheirs ? theirs.substr(0, 300) : "(end)");
    }
  }
}

void storm(Host& host, const Options& options) {
  Storm clients(host.port(), host.address(), options.seed, options.clients);
  const auto round = std::chrono::milliseconds(options.seconds * 1000 / 4);
  const std::uint64_t most = kRate * std::max(options.seconds / 4, 1U);
  const auto pass = [&] {
    clients.run(round, most);
    clients.scatter();
    return host.settle();
  };
  // What the first ones leave behind is what there is to be left: keys, threads, room.
  bool isSettled = pass() && pass();
  const std::size_t descriptors = host.descriptorsKept();
  const std::size_t memory = host.memory();
  const std::uint64_t ticks = host.figure("ticks").value_or(0);
  isSettled = pass() && isSettled;
  std::printf("%llu clients have come and read %llu bytes\n",
              static_cast<unsigned long long>(clients.clients()),
              static_cast<unsigned long long>(clients.bytesRead()));
  expect(!host.hasEnded(), "the host is alive");
  expect(isSettled, "nobody is left when all have gone");
  expect(host.figure("ticks").value_or(0) > ticks && ticks > 0, "the loop ticks");
  expect(host.get("/livez") == "ok\n", "requests are answered");
  const std::size_t descriptorsAfter = host.descriptorsKept();
  expect(descriptorsAfter <= descriptors,
         "no descriptor is left: " + std::to_string(descriptorsAfter) + " of " +
             std::to_string(descriptors));
  const std::size_t memoryAfter = host.memory();
  expect(memoryAfter <= memory + options.growth,
         "memory does not grow: " + std::to_string(memoryAfter >> 20U) + " MiB after " +
             std::to_string(memory >> 20U));

  clients.run(round, most);
  const Clock::time_point begin = Clock::now();
  host.end();
  while (!host.hasEnded() &&
         Clock::now() - begin < std::max<Clock::duration>(options.end, kSettling)) {
    clients.step();
  }
  const auto taken =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
  expect(taken <= options.end.count(), "the end takes " + std::to_string(taken) + " ms");
}

int play(const Options& options) {
  const TemporaryFolder folder;
  Host host(options, folder);
  storm(host, options);
  const ProgramResult ended = host.wait();
  expect(ended.code == 0, "it ends in order, with code " + std::to_string(ended.code));
  expect(ended.err.find("dropped") == std::string::npos &&
             ended.err.find("lacks") == std::string::npos,
         "nothing is missing in its outputs");
  const ProgramResult replayed = runProgram({options.gk, "replay", folder.file("run.mcap"), "--out",
                                             folder.file("again.jsonl"), "--only", "event,micro"});
  expect(replayed.code == 0, "the recording is replayed, with code " +
                                 std::to_string(replayed.code) + " " + replayed.err);
  const std::string difference =
      firstDifference(folder.file("live.jsonl"), folder.file("again.jsonl"));
  expect(difference.empty(), "the same events happen again " + difference);
  if (failures > 0) {
    std::printf("%s", ended.err.c_str());
    if (const char* const kept = std::getenv("GK_CHAOS_KEEP")) {
      std::filesystem::copy(folder.path(), kept, std::filesystem::copy_options::recursive);
    }
  }
  return failures > 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}

} // namespace

int main(int count, char** arguments) {
  Options options;
  std::vector<std::string> given(arguments + 1, arguments + count);
  std::erase_if(given, [&options](const std::string& argument) {
    const std::string value = argument.substr(argument.find('=') + 1);
    const bool isGrowth = argument.starts_with("--growth=");
    const bool isEnd = argument.starts_with("--end=");
    if (isGrowth) {
      options.growth = std::stoul(value) << 20U;
    } else if (isEnd) {
      options.end = std::chrono::milliseconds(std::stoul(value));
    }
    return isGrowth || isEnd;
  });
  if (given.empty() || given.size() > 4) {
    std::fprintf(stderr,
                 "usage: gateway_chaos GK [SECONDS [CLIENTS [SEED]]] [--growth=MIB] [--end=MS]\n");
    return 2;
  }
  options.gk = given[0];
  options.seconds = given.size() > 1 ? static_cast<unsigned>(std::stoul(given[1])) : 20;
  options.clients = given.size() > 2 ? std::stoul(given[2]) : 200;
  options.seed = given.size() > 3 ? std::stoull(given[3]) : 1;
  // Its size tells what a host holds only where the allocator keeps little for each of its threads.
  const gk::test::Environment arenas("MALLOC_ARENA_MAX", "2");
  return play(options);
}
