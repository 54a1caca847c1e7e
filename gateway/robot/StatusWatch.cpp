#include "gateway/robot/StatusWatch.h"

#include "formats/text/Printable.h"
#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "messages/text/FormatError.h"
#include "zu/log.h"

#include <algorithm>
#include <exception>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

namespace gk::gateway {

namespace {

constexpr const char* kStatusMethod = "status";

/// Whether it may return rows: a method of this name may have another meaning.
bool mayTellRows(const GK::GKModuleCore& module) {
  constexpr std::string_view others[] = {"", "bool", "int", "float", "string"};
  const GK::GKMethodDescription* method = module.findMethod(kStatusMethod, 0);
  return method != nullptr && std::ranges::find(others, method->result.type) == std::end(others);
}

/// The module's rows, or why there are none.
std::pair<std::vector<StatusRow>, std::string> askedOf(GK::GKModuleCore& module) {
  try {
    const GK::GKCallerScope scope(GK::GKCaller::Client);
    return {statusRows(module.getName(), module.callMethod(kStatusMethod, {})), ""};
  } catch (const messages::FormatError& error) {
    return {{}, error.what()};
  } catch (const GK::GKError& error) {
    return {{}, "it raised an error: " + error.getDescription()};
  } catch (const std::exception& error) {
    return {{}, std::string("it raised an error: ") + error.what()};
  } catch (...) {
    return {{}, "it raised something that is no error"};
  }
}

} // namespace

struct StatusWatch::Answers {
  struct OfModule {
    bool isRunning = false;
    /// It is running for so long that nobody waits for it any more.
    bool isLate = false;
    GK::GKMicros asked = 0;
    GK::GKMicros due = 0;
    /// What the log was told of last; empty since the last good answer.
    std::string trouble;
    std::vector<StatusRow> rows;
  };

  /// Tells of trouble unless it is the same as before.
  static void complain(const std::string& module, OfModule& answer, std::string why) {
    answer.rows.clear();
    if (std::exchange(answer.trouble, why) != why) {
      zu::log::warning("gateway.status", "refresh")
          << module << ".status does not tell how the module is: " << formats::printable(why)
          << "; it is left alone for a while";
    }
  }

  void take(const std::string& module, std::vector<StatusRow> rows, std::string trouble) {
    const std::lock_guard lock(mutex);
    OfModule& answer = modules[module];
    answer.isRunning = false;
    if (std::exchange(answer.isLate, false)) {
      answer.due = now + kPause;
    } else if (!trouble.empty()) {
      answer.due = now + kPause;
      complain(module, answer, std::move(trouble));
    } else {
      answer.due = answer.asked + kPeriod;
      answer.trouble.clear();
      answer.rows = std::move(rows);
    }
  }

  std::mutex mutex;
  GK::GKMicros now = 0;
  std::map<std::string, OfModule> modules;
};

StatusWatch::StatusWatch(CallRunner& runner)
    : fRunner(runner), fAnswers(std::make_shared<Answers>()) {}

StatusWatch::~StatusWatch() = default;

void StatusWatch::refresh(GK::GKMicros now) {
  const bool isAsking = fRobot != nullptr && fRobot->refusal().empty();
  if (!isAsking || GK::GKClock::instance().isVirtual()) {
    return;
  }
  const auto modules = fRobot->broker().getModules();
  {
    const std::lock_guard lock(fAnswers->mutex);
    fAnswers->now = now;
    std::erase_if(fAnswers->modules, [&modules](const auto& known) {
      return std::ranges::none_of(
          modules, [&known](const auto& module) { return module->getName() == known.first; });
    });
  }
  for (const boost::shared_ptr<GK::GKModuleCore>& module : modules) {
    if (mayTellRows(*module)) {
      xAsk(module, now);
    }
  }
}

void StatusWatch::xAsk(const boost::shared_ptr<GK::GKModuleCore>& module, GK::GKMicros now) {
  const std::string& name = module->getName();
  {
    const std::lock_guard lock(fAnswers->mutex);
    Answers::OfModule& answer = fAnswers->modules[name];
    if (answer.isRunning) {
      if (!answer.isLate && now - answer.asked > kPatience) {
        answer.isLate = true;
        Answers::complain(name, answer, "it has not returned for a second");
      }
      return;
    }
    if (now < answer.due) {
      return;
    }
    answer.isRunning = true;
    answer.asked = now;
  }
  const bool isStarted = fRunner.start({name, kStatusMethod}, [module, answers = fAnswers] {
    auto [rows, trouble] = askedOf(*module);
    answers->take(module->getName(), std::move(rows), std::move(trouble));
  });
  if (!isStarted) {
    const std::lock_guard lock(fAnswers->mutex);
    Answers::OfModule& answer = fAnswers->modules[name];
    answer.isRunning = false;
    answer.due = now + kPeriod;
  }
}

std::vector<StatusRow> StatusWatch::rows() const {
  const std::lock_guard lock(fAnswers->mutex);
  std::vector<StatusRow> rows;
  for (const auto& [module, answer] : fAnswers->modules) {
    rows.insert(rows.end(), answer.rows.begin(), answer.rows.end());
  }
  return rows;
}

} // namespace gk::gateway
