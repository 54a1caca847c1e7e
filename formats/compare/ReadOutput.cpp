#include "formats/compare/ReadReported.h"
#include "formats/text/LineReader.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <algorithm>
#include <optional>

namespace gk::formats {

namespace {

namespace json = boost::json;

constexpr const char* kKind = "kind";

bool isSkipped(std::string_view line) {
  const std::size_t first = line.find_first_not_of(" \t");
  return first == std::string_view::npos || line[first] == '#';
}

std::string_view viewOf(const json::string& text) {
  return {text.data(), text.size()};
}

/// The members of one output line.
class Members {
public:
  explicit Members(const json::object& line) : fLine(line) {}

  const json::value& at(const char* name) const {
    const json::value* found = fLine.if_contains(name);
    if (found == nullptr) {
      throw messages::FormatError(std::string("a line of output has \"") + name + "\"");
    }
    return *found;
  }
  std::string_view text(const char* name) const {
    const json::value& found = at(name);
    if (!found.is_string()) {
      throw messages::FormatError(std::string("\"") + name + "\" is a string");
    }
    return viewOf(found.get_string());
  }
  /// Empty where there is none.
  std::string textOrNone(const char* name) const {
    return fLine.contains(name) ? std::string(text(name)) : std::string();
  }
  GK::GKValue value(const char* name) const { return messages::valueFromJson(at(name)); }
  GK::GKValue valueOrNone(const char* name) const {
    return fLine.contains(name) ? value(name) : GK::GKValue();
  }

  GK::GKMicros time() const {
    const std::optional<double> seconds = messages::numberFromJson(at("t"));
    const std::optional<GK::GKMicros> time = seconds ? messages::toMicros(*seconds) : std::nullopt;
    if (!time || *time < 0) {
      throw messages::FormatError("\"t\" is a time in seconds, from 0 on");
    }
    return *time;
  }

  LineKind kind() const {
    const std::optional<LineKind> kind = findLineKind(text(kKind));
    if (!kind) {
      throw messages::FormatError("unknown kind of line " + messages::quotedText(text(kKind)));
    }
    return *kind;
  }

private:
  const json::object& fLine;
};

/// The kind of a line that is written as `gk` writes it, without a look at the rest.
std::optional<LineKind> kindAtOnce(std::string_view line) {
  constexpr std::string_view time = R"({"t":)";
  constexpr std::string_view kind = R"(,"kind":")";
  if (!line.starts_with(time)) {
    return std::nullopt;
  }
  line.remove_prefix(std::min(line.find(','), line.size()));
  if (!line.starts_with(kind)) {
    return std::nullopt;
  }
  line.remove_prefix(kind.size());
  return findLineKind(line.substr(0, line.find('"')));
}

void addSample(const Members& line, GK::GKMicros time, ReportedRun& run) {
  const json::value& values = line.at("values");
  if (!values.is_object()) {
    throw messages::FormatError("\"values\" is an object");
  }
  for (const auto& [key, value] : values.get_object()) {
    run.add(time, LineKind::Sample, {key.data(), key.size()}, messages::valueFromJson(value));
  }
}

void addLine(const Members& line, LineKind kind, GK::GKMicros time, ReportedRun& run) {
  switch (kind) {
  case LineKind::Declare:
    run.add(time, kind, line.text("event"), std::string(line.text("owner")));
    break;
  case LineKind::Event:
  case LineKind::Micro:
    run.add(time, kind, line.text("name"), line.value("value"));
    break;
  case LineKind::Data:
  case LineKind::Value:
    run.add(time, kind, line.text("key"), line.valueOrNone("value"));
    break;
  case LineKind::Order:
    run.addOrder(time, line.value("value"));
    break;
  case LineKind::Resource:
    run.add(time, kind, line.text("name"), line.value("enabled"));
    break;
  case LineKind::Log:
    run.addLog(time, line.value("level").toInt(), line.text("category"),
               std::string(line.text("function")), std::string(line.text("text")));
    break;
  case LineKind::Result:
    run.add(time, kind, line.text("call"), line.valueOrNone("value"));
    break;
  case LineKind::Error:
    run.addError(time, line.text("call"), line.textOrNone("module"), line.textOrNone("method"),
                 std::string(line.text("description")));
    break;
  case LineKind::Page:
    run.add(time, kind, line.text("module"), std::string(line.text("html")));
    break;
  case LineKind::Sample:
    addSample(line, time, run);
    break;
  }
}

} // namespace

bool isOutput(const std::string& path) {
  LineReader reader(path);
  while (const std::optional<std::string_view> line = reader.next()) {
    if (isSkipped(*line)) {
      continue;
    }
    try {
      const json::value parsed = messages::parseJson(*line);
      return parsed.is_object() && parsed.get_object().contains(kKind);
    } catch (const messages::FormatError&) {
      return false; // whoever reads it says so
    }
  }
  return true;
}

void readOutput(const std::string& path, ReportedRun& run, const ReadProgress& progress) {
  LineReader reader(path);
  while (const std::optional<std::string_view> text = reader.next()) {
    if (progress) {
      progress(reader.progress());
    }
    const std::optional<LineKind> atOnce = kindAtOnce(*text);
    if (isSkipped(*text) || (atOnce && !run.isWanted(*atOnce))) {
      continue;
    }
    try {
      const json::value parsed = messages::parseJson(*text);
      if (!parsed.is_object()) {
        throw messages::FormatError("a line of output is an object");
      }
      const Members line(parsed.get_object());
      addLine(line, line.kind(), line.time(), run);
    } catch (const messages::FormatError& error) {
      throw reader.error(error.what());
    } catch (const GK::GKError& error) {
      throw reader.error(error.getDescription());
    }
  }
  run.settle();
}

} // namespace gk::formats
