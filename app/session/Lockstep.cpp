#include "app/session/Lockstep.h"

#include "app/session/Listen.h"
#include "formats/lines/OutputLine.h"
#include "gateway/robot/Robot.h"
#include "gk/GKError.h"
#include "gk/GKObserver.h"
#include "messages/json/JsonValue.h"
#include "messages/json/JsonWriter.h"
#include "messages/json/KeyTypes.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/make_shared.hpp>

#include <array>
#include <cerrno>
#include <limits>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace gk::app {

namespace {

namespace json = boost::json;

/// The one parameter of a method of the host, by place or by name.
const json::value& onlyParameter(const json::value& params, const char* name) {
  if (params.is_array() && params.get_array().size() == 1) {
    return params.get_array()[0];
  }
  if (params.is_object() && params.get_object().size() == 1 && params.get_object().contains(name)) {
    return params.get_object().at(name);
  }
  throw messages::FormatError(std::string("takes (") + name + ")");
}

GK::GKMicros durationOf(const json::value& value) {
  const std::optional<double> seconds = messages::numberFromJson(value);
  const std::optional<GK::GKMicros> duration =
      seconds ? messages::toMicros(*seconds) : std::nullopt;
  if (!duration || *duration < 0) {
    throw messages::FormatError("seconds: a number from 0 on");
  }
  return *duration;
}

/// A method of the host that is done at once: `work` returns its result as JSON.
template <class Work> gateway::HostMethods::Method atOnce(const Work& work) {
  return [work](const json::value& params, const gateway::HostMethods::Done& done) {
    gateway::CallOutcome outcome;
    try {
      outcome.json = work(params);
    } catch (const messages::FormatError& error) {
      outcome.error = gateway::RpcError{gateway::kInvalidParams, error.what(), {}};
    } catch (const GK::GKError& error) {
      outcome.error = gateway::raisedError(error);
    }
    done(std::move(outcome));
  };
}

std::string valuesOf(const gateway::Robot& robot, const json::value& keys) {
  if (!keys.is_array()) {
    throw messages::FormatError("keys: an array of names");
  }
  const std::shared_ptr<GK::GKMemoryStore> store = robot.store();
  std::string text;
  messages::JsonWriter writer(text);
  writer.beginObject();
  for (const json::value& key : keys.get_array()) {
    if (!key.is_string()) {
      throw messages::FormatError("keys: an array of names");
    }
    const std::string_view name(key.get_string().data(), key.get_string().size());
    if (const auto value = store != nullptr ? store->get(name) : std::nullopt) {
      writer.key(name).value(*value);
    }
  }
  writer.endObject();
  return text;
}

/// All of them or, where one has no value that its key can have, none.
void writeValues(const gateway::Robot& robot, const json::value& values) {
  if (!values.is_object()) {
    throw messages::FormatError("values: an object with keys and their values");
  }
  for (const auto& [key, value] : values.get_object()) {
    try {
      messages::valueForKey(messages::keyTypeOf({key.data(), key.size()}), value);
    } catch (const messages::FormatError& error) {
      throw messages::FormatError(std::string(key) + ": " + error.what());
    }
  }
  for (const auto& [key, value] : values.get_object()) {
    robot.writeKey(std::string(key), value);
  }
}

} // namespace

/// The lines of standard input.
class Lockstep::Requests {
public:
  Requests() : fWake(eventfd(0, EFD_CLOEXEC)) {}
  ~Requests() { close(fWake); }
  Requests(const Requests&) = delete;
  Requests& operator=(const Requests&) = delete;

  enum class Next : std::uint8_t { Line, TooLong, Woken, End };

  /// Waits for a line that is not blank, or until it is woken.
  Next next(std::string& line) {
    while (true) {
      const std::size_t end = fBuffer.find('\n', fSearched);
      if (end != std::string::npos) {
        line.assign(fBuffer, fBegin, end - fBegin);
        fBegin = fSearched = end + 1;
        if (std::exchange(fIsSkipping, false)) {
          return Next::TooLong;
        }
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
          return line.size() > kMostBytes ? Next::TooLong : Next::Line;
        }
        continue;
      }
      fBuffer.erase(0, fBegin);
      fBegin = 0;
      if (fBuffer.size() > kMostBytes) {
        fIsSkipping = true;
        fBuffer.clear();
      }
      fSearched = fBuffer.size();
      const Next next = xRead();
      if (next == Next::Woken) {
        return next;
      }
      if (next == Next::End) {
        // A last line may lack its end.
        line = std::exchange(fBuffer, {});
        fSearched = 0;
        const bool isBlank = line.find_first_not_of(" \t\r") == std::string::npos;
        return std::exchange(fIsSkipping, false) ? Next::TooLong : isBlank ? Next::End : Next::Line;
      }
    }
  }

  /// Ends the input. Any thread.
  void end() noexcept {
    fIsEnded.store(true);
    wake();
  }

  /// Any thread.
  void wake() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = write(fWake, &one, sizeof(one));
  }

private:
  /// Waits for more.
  Next xRead() {
    while (true) {
      std::array<pollfd, 2> ready{{{STDIN_FILENO, POLLIN, 0}, {fWake, POLLIN, 0}}};
      if (poll(ready.data(), ready.size(), -1) < 0 && errno == EINTR) {
        continue;
      }
      if (fIsEnded.load()) {
        return Next::End;
      }
      if (ready[1].revents != 0) {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t ignored = read(fWake, &count, sizeof(count));
        return Next::Woken;
      }
      const std::size_t size = fBuffer.size();
      fBuffer.resize(size + kPiece);
      const ssize_t count = read(STDIN_FILENO, fBuffer.data() + size, kPiece);
      fBuffer.resize(size + (count > 0 ? static_cast<std::size_t>(count) : 0));
      if (count > 0) {
        return Next::Line;
      }
      if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        return Next::End;
      }
    }
  }

  static constexpr std::size_t kPiece = std::size_t{64} * 1024;

  const int fWake;
  std::atomic<bool> fIsEnded{false};
  std::string fBuffer;
  /// What has not been given out begins here, and its end is looked for from there on.
  std::size_t fBegin = 0;
  std::size_t fSearched = 0;
  /// The line at hand is too long already.
  bool fIsSkipping = false;
};

/// The events that are raised, until somebody takes them. Any thread: libraries may have threads of
/// their own.
class Lockstep::Raised final : public GK::GKObserver {
public:
  void onNotice(const GK::GKNotice& notice) override {
    if (notice.kind == GK::GKNotice::Kind::Event || notice.kind == GK::GKNotice::Kind::MicroEvent) {
      const std::lock_guard lock(fMutex);
      fText += fText.empty() ? "" : ",";
      formats::appendNotice(fText, notice);
      fText.pop_back(); // the end of the line
    }
  }

  std::string take() {
    const std::lock_guard lock(fMutex);
    return std::exchange(fText, {});
  }

private:
  std::mutex fMutex;
  std::string fText;
};

Lockstep::Lockstep()
    : fRequests(std::make_unique<Requests>()), fRaised(boost::make_shared<Raised>()),
      fService(fRunner, fCounters, std::numeric_limits<std::size_t>::max(), &fMethods) {
  xAddMethods();
  GK::GKObserverList::instance().add(fRaised);
}

Lockstep::~Lockstep() {
  GK::GKObserverList::instance().remove(fRaised);
}

void Lockstep::requestEnd() noexcept {
  fOut.hurry();
  fRequests->end();
}

void Lockstep::xAddMethods() {
  fMethods.add(
      "Clock", "advance", [this](const json::value& params, gateway::HostMethods::Done done) {
        GK::GKMicros duration = 0;
        try {
          duration = durationOf(onlyParameter(params, "seconds"));
          constexpr auto latest = static_cast<GK::GKMicros>(messages::kMaxSeconds * 1e6);
          if (duration > latest - fTime) {
            throw messages::FormatError("seconds: there is no time so far from now");
          }
        } catch (const messages::FormatError& error) {
          done({std::nullopt,
                gateway::RpcError{
                    gateway::kInvalidParams, std::string("Clock.advance ") + error.what(), {}},
                {}});
          return;
        }
        fAdvances.push_back({duration, std::move(done)});
      });
  fMethods.add("Memory", "get", atOnce([this](const json::value& params) {
                 return valuesOf(*fRobot, onlyParameter(params, "keys"));
               }));
  fMethods.add("Memory", "set", atOnce([this](const json::value& params) {
                 writeValues(*fRobot, onlyParameter(params, "values"));
                 return std::string("null");
               }));
}

void Lockstep::outside(const std::function<void()>& work) {
  if (std::this_thread::get_id() == fDriver.load() || GK::GKTask::current() != nullptr) {
    work();
    return;
  }
  const auto waiting = std::make_shared<Waiting>();
  waiting->work = &work;
  std::unique_lock lock(fMutex);
  if (fIsClosed) {
    return;
  }
  fWaiting.push_back(waiting);
  fRequests->wake();
  fServed.wait(lock, [this, &waiting] { return waiting->isDone || fIsClosed; });
  if (waiting->error) {
    std::rethrow_exception(waiting->error);
  }
}

/// What somebody waits for, if anybody does.
std::optional<runtime::Host::Step> Lockstep::xStepOfOthers() {
  const std::lock_guard lock(fMutex);
  if (fWaiting.empty()) {
    return std::nullopt;
  }
  const std::shared_ptr<Waiting> waiting = fWaiting.front();
  fWaiting.pop_front();
  return runtime::Host::Step{fTime, [this, waiting] {
                               try {
                                 (*waiting->work)();
                               } catch (...) {
                                 waiting->error = std::current_exception();
                               }
                               const std::lock_guard served(fMutex);
                               waiting->isDone = true;
                               fServed.notify_all();
                             }};
}

void Lockstep::xEndOutside() {
  const std::lock_guard lock(fMutex);
  fIsClosed = true;
  fWaiting.clear();
  fServed.notify_all();
}

void Lockstep::drive(runtime::Host& host) {
  const gateway::CarryOut carryOut = [&host](const formats::Action& action,
                                             const std::function<void()>& work) {
    host.carryOut(action, work);
  };
  fRunner.setCarryOut(carryOut);
  fRobot = std::make_shared<gateway::Robot>(
      host.broker(), [&host] { return loopFigures(host.loops()); }, carryOut);
  host.runInSteps([this] { return xNextStep(); });
  if (fAdvance) {
    // The run has ended in it; this is the last answer.
    xFinishAdvance(GK::GKClock::instance().elapsed());
  }
  // Calls that have not returned by now are answered no more.
  fHasEnded = true;
  xEndOutside();
  fRunner.close();
  fRobot.reset();
  if (fError) {
    throw formats::OutputError(*fError);
  }
}

std::optional<runtime::Host::Step> Lockstep::xNextStep() {
  // It is this one that makes the step, too.
  fDriver = std::this_thread::get_id();
  while (!fError) {
    if (fAdvance) {
      // What follows in a batch comes in now, too.
      return runtime::Host::Step{fTime, [this] { xFinishAdvance(fTime); }};
    }
    if (!fAdvances.empty()) {
      fAdvance = std::move(fAdvances.front());
      fAdvances.pop_front();
      fTime += fAdvance->duration;
      return runtime::Host::Step{fTime, nullptr};
    }
    if (std::optional<runtime::Host::Step> step = xStepOfOthers()) {
      return step;
    }
    switch (fRequests->next(fRequest)) {
    case Requests::Next::Line:
      return runtime::Host::Step{fTime, [this] {
                                   fService.handle(fRobot, fRequest, [this](std::string answer) {
                                     xAnswer(std::move(answer));
                                   });
                                 }};
    case Requests::Next::TooLong:
      xRefuseLongRequest();
      break;
    case Requests::Next::Woken:
      break;
    case Requests::Next::End:
      return std::nullopt;
    }
  }
  return std::nullopt;
}

void Lockstep::xRefuseLongRequest() {
  std::string answer;
  gateway::appendRpcError(answer, "null",
                          {gateway::kInvalidRequest,
                           "a request has at most " + std::to_string(kMostBytes) + " bytes",
                           {}});
  xAnswer(std::move(answer));
}

void Lockstep::xFinishAdvance(GK::GKMicros time) {
  const Advance advance = *std::exchange(fAdvance, std::nullopt);
  gateway::CallOutcome outcome;
  std::string seconds;
  messages::appendSeconds(seconds, time);
  messages::JsonWriter(outcome.json)
      .beginObject()
      .key("time")
      .raw(seconds)
      .key("events")
      .raw("[" + fRaised->take() + "]")
      .endObject();
  advance.done(outcome);
}

void Lockstep::xAnswer(std::string answer) {
  if (answer.empty() || fHasEnded || fError) {
    return;
  }
  try {
    fOut.write(answer += '\n');
  } catch (const formats::OutputError& error) {
    fError = error; // there may be a task's thread around this
  }
}

} // namespace gk::app
