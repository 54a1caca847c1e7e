#include "devices/meaning/EventWords.h"
#include "formats/text/Printable.h"
#include "messages/json/JsonValue.h"
#include "runtime/output/Reporter.h"
#include "zu/log.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace gk::runtime {

namespace {

/// Terminal colours (ECMA-48 SGR).
constexpr std::string_view kDim = "2";
constexpr std::string_view kRed = "31";
constexpr std::string_view kYellow = "33";
constexpr std::string_view kBlue = "34";

std::string_view colourOf(const GK::GKNotice& notice) {
  switch (notice.kind) {
  case GK::GKNotice::Kind::Order:
  case GK::GKNotice::Kind::Resource:
    return kBlue;
  case GK::GKNotice::Kind::Log:
    return notice.level <= zu::log::Error     ? kRed
           : notice.level == zu::log::Warning ? kYellow
                                              : kDim;
  default:
    return kDim;
  }
}

double secondsOf(GK::GKMicros time) {
  constexpr double microsPerSecond = 1e6;
  return static_cast<double>(time) / microsPerSecond;
}

std::string text(const GK::GKValue& value) {
  std::string json;
  messages::appendJson(json, value);
  return formats::printable(json);
}

/// A text of several lines.
std::string printableLines(std::string_view text) {
  std::string clean;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    clean += formats::printable(text.substr(0, end));
    clean += end < text.size() ? "\n" : "";
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return clean;
}

} // namespace

ReadableReporter::ReadableReporter(std::unique_ptr<Outlet> outlet, formats::LineKinds kinds,
                                   int logLevel, formats::LiveRows::Style style)
    : Reporter(std::move(outlet), kinds), fLogLevel(logLevel), fRows(std::move(style)) {}

void ReadableReporter::xRow(std::string& out, GK::GKMicros time, std::string_view kind,
                            std::string_view name, std::string value, std::string_view colour) {
  formats::LiveRow row;
  row.time = secondsOf(time);
  row.kind = kind;
  row.name = formats::printable(name);
  row.value = std::move(value);
  row.colour = colour;
  fRows.append(out, row);
}

void ReadableReporter::xAppend(std::string& out, const GK::GKNotice& notice) {
  const std::string_view kind = formats::lineKindName(formats::lineKindOf(notice));
  const auto row = [&](std::string_view name, std::string_view value) {
    xRow(out, notice.time, kind, name, std::string(value), colourOf(notice));
  };
  switch (notice.kind) {
  case GK::GKNotice::Kind::Event:
  case GK::GKNotice::Kind::MicroEvent:
    fRows.append(out, {secondsOf(notice.time), std::string(kind), formats::printable(notice.name),
                       text(notice.value), true, notice.kind == GK::GKNotice::Kind::MicroEvent, "2",
                       formats::printable(devices::eventSentence(notice.name, notice.value))});
    break;
  case GK::GKNotice::Kind::Log:
    if (notice.level <= fLogLevel) {
      row(fmt::format("{} {}", zu::log::levelName(notice.level), notice.name),
          formats::printable(notice.text));
    }
    break;
  case GK::GKNotice::Kind::Order:
    row("DCM", text(notice.value));
    break;
  case GK::GKNotice::Kind::Declare:
    row(notice.name, formats::printable(notice.owner));
    break;
  default:
    row(notice.name, text(notice.value));
  }
}

void ReadableReporter::xAppend(std::string& out, const Answer& answer) {
  const bool isError =
      answer.kind == Answer::Kind::Error || answer.kind == Answer::Kind::OtherError;
  const auto row = [&](std::string_view kind, std::string_view value) {
    xRow(out, answer.time, kind, answer.name, std::string(value), isError ? kRed : kBlue);
  };
  switch (answer.kind) {
  case Answer::Kind::Result:
    row("result", answer.hasValue ? text(answer.value) : "done");
    break;
  case Answer::Kind::Error:
    row("error", formats::printable(answer.error->what()));
    break;
  case Answer::Kind::OtherError:
    row("error", formats::printable(answer.text));
    break;
  case Answer::Kind::Value:
    row("value", answer.hasValue ? text(answer.value) : "unknown key");
    break;
  case Answer::Kind::Page:
    row("page", printableLines(answer.text));
    break;
  }
}

void ReadableReporter::xAppend(std::string& out, GK::GKMicros time, const Sample& values) {
  for (const auto& [key, value] : values) {
    xRow(out, time, "sample", key, text(value), kDim);
  }
}

} // namespace gk::runtime
