#include "formats/lines/OutputLine.h"

#include "messages/json/JsonText.h"
#include "messages/json/JsonValue.h"
#include "messages/text/Numbers.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace gk::formats {

namespace {

using GK::GKNotice;

/// In the order of `LineKind`.
constexpr std::array<std::string_view, kLineKinds> kNames{"declare", "event",    "micro", "data",
                                                          "order",   "resource", "log",   "result",
                                                          "error",   "value",    "page",  "sample"};

/// One line being written; members come out in the order of the calls.
class Line {
public:
  Line(std::string& out, GK::GKMicros time, LineKind kind) : fOut(out) {
    fOut += R"({"t":)";
    messages::appendSeconds(fOut, time);
    fOut += R"(,"kind":")";
    fOut += lineKindName(kind);
    fOut += '"';
  }
  ~Line() { fOut += "}\n"; }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  Line& text(std::string_view name, std::string_view text) {
    messages::appendJsonString(member(name), text);
    return *this;
  }
  Line& value(std::string_view name, const GK::GKValue& value) {
    messages::appendJson(member(name), value);
    return *this;
  }
  /// Begins a member; what is appended to the result is its value.
  std::string& member(std::string_view name) {
    fOut += ",\"";
    fOut += name;
    fOut += "\":";
    return fOut;
  }

private:
  std::string& fOut;
};

} // namespace

std::string_view lineKindName(LineKind kind) {
  return kNames[static_cast<std::size_t>(kind)];
}

std::optional<LineKind> findLineKind(std::string_view name) {
  const auto* const found = std::ranges::find(kNames, name);
  return found != kNames.end() ? std::optional(static_cast<LineKind>(found - kNames.begin()))
                               : std::nullopt;
}

LineKinds LineKinds::all() {
  LineKinds kinds;
  kinds.fKinds.set();
  return kinds;
}

LineKinds LineKinds::parse(std::string_view names) {
  LineKinds kinds;
  for (;;) {
    const std::size_t comma = names.find(',');
    const std::string_view name = names.substr(0, comma);
    const std::optional<LineKind> kind = findLineKind(name);
    if (!kind) {
      throw std::invalid_argument("unknown kind of line " + messages::quotedText(name));
    }
    kinds.fKinds.set(static_cast<std::size_t>(*kind));
    if (comma == std::string_view::npos) {
      return kinds;
    }
    names.remove_prefix(comma + 1);
  }
}

LineKind lineKindOf(const GKNotice& notice) {
  switch (notice.kind) {
  case GKNotice::Kind::Declare:
    return LineKind::Declare;
  case GKNotice::Kind::Event:
    return LineKind::Event;
  case GKNotice::Kind::MicroEvent:
    return LineKind::Micro;
  case GKNotice::Kind::Insert:
    return LineKind::Data;
  case GKNotice::Kind::Order:
    return LineKind::Order;
  case GKNotice::Kind::Resource:
    return LineKind::Resource;
  case GKNotice::Kind::Log:
    break;
  }
  return LineKind::Log;
}

void appendNotice(std::string& out, const GKNotice& notice) {
  const LineKind kind = lineKindOf(notice);
  Line line(out, notice.time, kind);
  switch (notice.kind) {
  case GKNotice::Kind::Declare:
    line.text("event", notice.name).text("owner", notice.owner);
    break;
  case GKNotice::Kind::Event:
  case GKNotice::Kind::MicroEvent:
    line.text("name", notice.name).value("value", notice.value);
    break;
  case GKNotice::Kind::Insert:
    line.text("key", notice.name).value("value", notice.value);
    break;
  case GKNotice::Kind::Order:
    line.value("value", notice.value);
    break;
  case GKNotice::Kind::Resource:
    line.text("name", notice.name).value("enabled", notice.value);
    break;
  case GKNotice::Kind::Log:
    line.value("level", notice.level)
        .text("category", notice.name)
        .text("function", notice.owner)
        .text("text", notice.text);
    break;
  }
}

void appendResult(std::string& out, GK::GKMicros time, std::string_view call,
                  const GK::GKValue* value) {
  Line line(out, time, LineKind::Result);
  line.text("call", call);
  if (value != nullptr) {
    line.value("value", *value);
  }
}

void appendError(std::string& out, GK::GKMicros time, std::string_view call,
                 const GK::GKError& error) {
  Line(out, time, LineKind::Error)
      .text("call", call)
      .text("module", error.getModule())
      .text("method", error.getMethod())
      .text("description", error.getDescription());
}

void appendError(std::string& out, GK::GKMicros time, std::string_view call,
                 std::string_view description) {
  Line(out, time, LineKind::Error).text("call", call).text("description", description);
}

void appendValue(std::string& out, GK::GKMicros time, std::string_view key,
                 const GK::GKValue* value) {
  Line line(out, time, LineKind::Value);
  line.text("key", key);
  if (value != nullptr) {
    line.value("value", *value);
  }
}

void appendPage(std::string& out, GK::GKMicros time, std::string_view module,
                std::string_view html) {
  Line(out, time, LineKind::Page).text("module", module).text("html", html);
}

void appendSample(std::string& out, GK::GKMicros time,
                  std::span<const std::pair<std::string, GK::GKValue>> values) {
  Line line(out, time, LineKind::Sample);
  line.member("values") += '{';
  std::string_view separator;
  for (const auto& [key, value] : values) {
    out += separator;
    messages::appendJsonString(out, key);
    out += ':';
    messages::appendJson(out, value);
    separator = ",";
  }
  out += '}';
}

} // namespace gk::formats
