#include "formats/compare/ReadReported.h"
#include "formats/mcap/Reader.h"
#include "formats/mcap/Source.h"
#include "formats/run/RunCut.h"
#include "formats/run/RunFile.h"
#include "formats/run/RunLogReader.h"
#include "formats/text/InputError.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <boost/json/object.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace gk::formats {

namespace {

namespace json = boost::json;

constexpr const char* kEventsTopic = "/events";
constexpr const char* kLogTopic = "/log";
constexpr const char* kJsonEncoding = "json";

/// What the metadata of a run say, and how people call it.
constexpr std::pair<const char*, const char*> kRunFacts[] = {
    {"version", "version"}, {"libraries", "libraries"}, {"files", "files"},
    {"robot", "robot"},     {"subscribe", "subscribe"}, {"without", "without"},
    {"loop", "loop"},       {"speed", "speed"},         {"start", "start"},
    {"host", "host"}};

[[noreturn]] void failOn(const char* topic, const std::string& what) {
  throw messages::FormatError(std::string("a message of ") + topic + ": " + what);
}

std::string_view textAt(const json::object& message, const char* name, const char* topic) {
  const json::value* found = message.if_contains(name);
  if (found == nullptr || !found->is_string()) {
    failOn(topic, std::string("\"") + name + "\" is a string");
  }
  return {found->get_string().data(), found->get_string().size()};
}

/// Reads one recording.
class RecordedFile {
public:
  explicit RecordedFile(const std::string& path) : fPath(path), fSource(path) { xRewind(); }

  /// Looks at the file's beginning only, where its metadata stand.
  RecordedKind kind() {
    RecordedKind kind = RecordedKind::Input;
    while (const std::optional<mcap::Item> item = fReader->next()) {
      if (std::holds_alternative<mcap::Message>(*item)) {
        break;
      }
      if (const auto* metadata = std::get_if<mcap::Metadata>(&*item)) {
        const auto clock = metadata->values.find(kClockMember);
        if (metadata->name == kRunMetadata && clock != metadata->values.end() &&
            clock->second == kTurnsClock) {
          return RecordedKind::Run;
        }
        kind = metadata->name == kStreamMetadata ? RecordedKind::Stream : kind;
      }
    }
    return kind;
  }

  /// The same for where what is in it begins.
  GK::GKMicros from() {
    while (const std::optional<mcap::Item> item = fReader->next()) {
      const auto* metadata = std::get_if<mcap::Metadata>(&*item);
      if (metadata == nullptr) {
        break;
      }
      const auto text = metadata->values.find(kCutFromMember);
      if (metadata->name == kCutMetadata && text != metadata->values.end()) {
        const std::optional<double> seconds = messages::parseDouble(text->second);
        return (seconds ? messages::toMicros(*seconds) : std::nullopt).value_or(0);
      }
    }
    return 0;
  }

  void read(ReportedRun& run, const ReadProgress& progress) {
    run.told = LineKinds::parse("event,micro,log");
    if (run.isWanted(LineKind::Log)) {
      xFindEpoch();
      xRewind();
    }
    while (const std::optional<mcap::Item> item = fReader->next()) {
      if (progress) {
        progress(fReader->progress());
      }
      if (const auto* message = std::get_if<mcap::Message>(&*item)) {
        xTake(*message, run);
      } else if (const auto* metadata = std::get_if<mcap::Metadata>(&*item)) {
        xTake(*metadata, run);
      }
    }
    for (const mcap::Problem& problem : fReader->problems().kept()) {
      run.warnings.push_back(fPath + ": byte " + std::to_string(problem.offset) + ": " +
                             problem.text);
    }
    run.settle();
  }

private:
  void xRewind() {
    try {
      fReader = std::make_unique<mcap::Reader>(fSource);
    } catch (const messages::FormatError& error) {
      throw InputError(fPath, 0, error.what());
    }
  }

  /// Log lines have the time of the wall clock only: looks for something that has both times.
  void xFindEpoch() {
    while (const std::optional<mcap::Item> item = fReader->next()) {
      const auto* message = std::get_if<mcap::Message>(&*item);
      if (message == nullptr) {
        continue;
      }
      try {
        if (const std::optional<GK::GKMicros> time = xTimeOf(*message)) {
          fEpoch = xMicros(*message) - *time;
          return;
        }
      } catch (const messages::FormatError&) { // NOLINT(bugprone-empty-catch): told when it is read
      }
    }
  }

  /// The time in the run of a message that tells it.
  std::optional<GK::GKMicros> xTimeOf(const mcap::Message& message) const {
    const mcap::Channel& channel = fReader->channel(message.channelId);
    if (isRunEncoding(channel.messageEncoding)) {
      RunLogReader entries;
      entries.begin(message.data, message.sequence, channel.messageEncoding);
      while (const std::optional<RunEntry> entry = entries.next()) {
        if (const auto* turn = std::get_if<RunTurn>(&*entry)) {
          return turn->time;
        }
      }
    } else if (channel.topic == kEventsTopic && channel.messageEncoding == kJsonEncoding) {
      const json::value parsed = messages::parseJson(message.data);
      return parsed.is_object() ? std::optional(xTime(parsed.get_object())) : std::nullopt;
    }
    return std::nullopt;
  }

  static GK::GKMicros xMicros(const mcap::Message& message) {
    constexpr std::uint64_t nanosPerMicro = 1000;
    return static_cast<GK::GKMicros>(message.logTime / nanosPerMicro);
  }

  static GK::GKMicros xTime(const json::object& message) {
    const json::value* found = message.if_contains("t_s");
    const std::optional<double> seconds =
        found != nullptr ? messages::numberFromJson(*found) : std::nullopt;
    const std::optional<GK::GKMicros> time = seconds ? messages::toMicros(*seconds) : std::nullopt;
    if (!time) {
      failOn(kEventsTopic, "\"t_s\" is a time in seconds");
    }
    return *time;
  }

  void xTake(const mcap::Message& message, ReportedRun& run) const {
    const mcap::Channel& channel = fReader->channel(message.channelId);
    const bool isEvent = channel.topic == kEventsTopic;
    const bool isLog = channel.topic == kLogTopic && fEpoch && run.isWanted(LineKind::Log);
    if (channel.messageEncoding != kJsonEncoding || (!isEvent && !isLog)) {
      return;
    }
    try {
      const json::value parsed = messages::parseJson(message.data);
      if (!parsed.is_object()) {
        failOn(channel.topic.c_str(), "is an object");
      }
      if (isEvent) {
        xTakeEvent(parsed.get_object(), run);
      } else {
        xTakeLog(parsed.get_object(), xMicros(message) - *fEpoch, run);
      }
    } catch (const messages::FormatError& error) {
      throw InputError(fPath, 0,
                       "byte " + std::to_string(fReader->itemOffset()) + ": " + error.what());
    }
  }

  static void xTakeEvent(const json::object& message, ReportedRun& run) {
    const bool isMicro = textAt(message, "kind", kEventsTopic) == lineKindName(LineKind::Micro);
    const json::value* value = message.if_contains("value");
    if (value == nullptr) {
      failOn(kEventsTopic, "has no \"value\"");
    }
    run.add(xTime(message), isMicro ? LineKind::Micro : LineKind::Event,
            textAt(message, "name", kEventsTopic), messages::valueFromJson(*value));
  }

  static void xTakeLog(const json::object& message, GK::GKMicros time, ReportedRun& run) {
    // Viewers count the other way round: 5 fatal, 4 error, 3 warning, 2 info, 1 debug.
    constexpr int viewersFatal = 5;
    const json::value* level = message.if_contains("level");
    if (level == nullptr || !level->is_int64() || level->get_int64() < 1 ||
        level->get_int64() > viewersFatal) {
      failOn(kLogTopic, "\"level\" is a number from 1 to 5");
    }
    run.addLog(time, viewersFatal + 1 - static_cast<int>(level->get_int64()),
               textAt(message, "name", kLogTopic), std::string(textAt(message, "file", kLogTopic)),
               std::string(textAt(message, "message", kLogTopic)));
  }

  void xTake(const mcap::Metadata& metadata, ReportedRun& run) const {
    if (metadata.name == kLossMetadata) {
      for (const auto& [name, value] : metadata.values) {
        if (!value.empty() && value != "0") {
          run.warnings.emplace_back(fPath)
              .append(": something is missing in it: ")
              .append(name)
              .append(": ")
              .append(value);
        }
      }
    }
    if (metadata.name != kRunMetadata && metadata.name != kStreamMetadata) {
      return;
    }
    for (const auto& [name, shown] : kRunFacts) {
      const auto found = metadata.values.find(name);
      if (found != metadata.values.end() && !found->second.empty()) {
        run.facts.emplace_back(shown, found->second);
      }
    }
  }

  const std::string fPath;
  mcap::FileSource fSource;
  std::unique_ptr<mcap::Reader> fReader;
  /// Microseconds since 1970 at the run's start.
  std::optional<GK::GKMicros> fEpoch;
};

} // namespace

GK::GKMicros recordedFrom(const std::string& path) {
  return RecordedFile(path).from();
}

RecordedKind recordedKind(const std::string& path) {
  return RecordedFile(path).kind();
}

void readRecorded(const std::string& path, ReportedRun& run, const ReadProgress& progress) {
  RecordedFile(path).read(run, progress);
}

} // namespace gk::formats
