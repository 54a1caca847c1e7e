#include "zu/log.h"

#include "gk/GKError.h"
#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <array>
#include <locale>
#include <memory>
#include <mutex>
#include <string_view>

namespace zu::log {

namespace {

/// The back end counts the other way round: 0 (trace) to 5 (critical), 6 is off.
constexpr int kOff = 6;
static_assert(SPDLOG_LEVEL_TRACE == kOff - Debug && SPDLOG_LEVEL_CRITICAL == kOff - Fatal &&
              SPDLOG_LEVEL_OFF == kOff);

spdlog::level::level_enum toSpdlog(int level) {
  const bool isLevel = level >= Fatal && level <= Debug;
  return static_cast<spdlog::level::level_enum>(isLevel ? kOff - level : kOff);
}

/// Our names of the levels, in patterns.
class LevelFlag final : public spdlog::custom_flag_formatter {
public:
  static constexpr char kFlag = '*';

  void format(const spdlog::details::log_msg& message, const std::tm&,
              spdlog::memory_buf_t& out) override {
    const std::string_view name = levelName(kOff - static_cast<int>(message.level));
    out.append(name.data(), name.data() + name.size());
  }
  std::unique_ptr<custom_flag_formatter> clone() const override {
    return std::make_unique<LevelFlag>();
  }
};

std::unique_ptr<spdlog::formatter> makeFormatter(const char* pattern) {
  auto formatter = std::make_unique<spdlog::pattern_formatter>();
  formatter->add_flag<LevelFlag>(LevelFlag::kFlag).set_pattern(pattern);
  return formatter;
}

/// Console and file, each with a level of its own. One lock for both, since the loop writes too:
/// the back end needs none of its own.
class Backend {
public:
  static Backend& instance() {
    static Backend backend;
    return backend;
  }

  void write(int level, const std::string& line) {
    const std::lock_guard lock(fMutex);
    fConsole->log(toSpdlog(level), line);
    if (fFile != nullptr) {
      fFile->log(toSpdlog(level), line);
    }
  }

  void setConsoleLevel(int level) {
    const std::lock_guard lock(fMutex);
    fConsole->set_level(toSpdlog(level));
  }

  void setFile(const std::string& path, int level) {
    const std::lock_guard lock(fMutex);
    fFile.reset();
    if (path.empty()) {
      return;
    }
    try {
      fFile = std::make_shared<spdlog::logger>(
          "file", std::make_shared<spdlog::sinks::basic_file_sink_st>(path));
    } catch (const spdlog::spdlog_ex& error) {
      throw GK::GKError("log", "setFile", error.what());
    }
    fFile->set_level(toSpdlog(level));
    fFile->flush_on(spdlog::level::info);
    fFile->set_formatter(makeFormatter("%Y-%m-%dT%H:%M:%S.%f%z %* %v"));
  }

private:
  Backend()
      : fConsole(std::make_shared<spdlog::logger>(
            "console", std::make_shared<spdlog::sinks::stderr_color_sink_st>())) {
    fConsole->set_formatter(makeFormatter("%^%*%$ %v"));
    fConsole->set_level(toSpdlog(Info));
  }

  GK::GKPriorityMutex fMutex;
  std::shared_ptr<spdlog::logger> fConsole;
  std::shared_ptr<spdlog::logger> fFile;
};

} // namespace

const char* levelName(int level) noexcept {
  constexpr std::array names = {"fatal", "error", "warning", "info", "verbose", "debug"};
  return level >= Fatal && level <= Debug ? names[static_cast<std::size_t>(level - Fatal)]
                                          : "unknown";
}

LogStream::LogStream(int level, std::string category, std::string function, std::string file,
                     int line)
    : fLevel(level), fCategory(std::move(category)), fFunction(std::move(function)),
      fFile(std::move(file)), fLine(line) {
  fText.imbue(std::locale::classic());
}

LogStream::~LogStream() {
  try {
    std::string text = fText.str();
    if (!text.empty() && text.back() == '\n') {
      text.pop_back();
    }
    std::string place = fFile.empty() ? "" : " (" + fFile + ":" + std::to_string(fLine) + ")";
    Backend::instance().write(fLevel, fCategory + " " + fFunction + ": " + text + place);
    GK::GKObserverList::instance().show(GK::GKNotice::Kind::Log, [&](GK::GKNotice& notice) {
      notice.level = fLevel;
      notice.name = std::move(fCategory);
      notice.owner = std::move(fFunction);
      notice.text = std::move(text);
    });
  } catch (...) { // NOLINT(bugprone-empty-catch): a log line must never end what it tells about
  }
}

void setConsoleLevel(int level) noexcept {
  Backend::instance().setConsoleLevel(level);
}

void setFile(const std::string& path, int level) {
  Backend::instance().setFile(path, level);
}

} // namespace zu::log
