#include "formats/lines/ExpectationText.h"

#include "messages/json/JsonValue.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>

namespace gk::formats {

namespace {

constexpr GK::GKMicros kMillisecond = 1'000;
constexpr GK::GKMicros kSecond = 1'000'000;

std::string secondsText(GK::GKMicros span) {
  std::string text;
  messages::appendSeconds(text, span);
  return text;
}

std::string floatText(float value) {
  return valueText(GK::GKValue(value));
}

/// " 1.0", " above 0.5 and below 1.0", or nothing.
std::string limitsText(const ExpectedValue& expected) {
  std::string text;
  if (expected.value) {
    text += " " + valueText(*expected.value);
    if (expected.tolerance > 0.0F) {
      text += " ± " + floatText(expected.tolerance);
    }
  }
  if (expected.above) {
    text += " above " + floatText(*expected.above);
  }
  if (expected.below) {
    text += std::string(expected.above ? " and" : "") + " below " + floatText(*expected.below);
  }
  return text;
}

/// "X 1.0", or "log line \"text\" of level 3".
std::string subjectText(const Expectation& expectation) {
  if (expectation.subject != Expectation::Subject::Log) {
    return expectation.name + limitsText(expectation.value);
  }
  std::string text = "log line " + messages::quotedText(expectation.name);
  if (expectation.level > 0) {
    text += " of level " + std::to_string(expectation.level);
  }
  return text;
}

std::string countText(const Expectation& expectation) {
  const auto& [least, most] = std::pair(expectation.atLeast, expectation.atMost);
  std::string number;
  if (least && most) {
    number = *least == *most ? std::to_string(*least) : fmt::format("{} to {}", *least, *most);
  } else if (least) {
    number = fmt::format("at least {}", *least);
  } else {
    number = fmt::format("at most {}", *most);
  }
  return number + " of " + subjectText(expectation);
}

std::string callText(const Expectation& expectation) {
  const std::string call = "call " + expectation.name;
  if (expectation.error) {
    return call + " to fail with " + messages::quotedText(*expectation.error);
  }
  return call + " to return" + limitsText(expectation.value);
}

/// "at 2.010 s", or "from 2.010 to 3.010 s".
std::string spanText(GK::GKMicros from, std::optional<GK::GKMicros> span) {
  return span ? fmt::format("from {} to {} s", momentText(from), momentText(from + *span))
              : fmt::format("at {} s", momentText(from));
}

} // namespace

std::string momentText(GK::GKMicros time) {
  const int decimals = time % kMillisecond == 0 ? 3 : 6;
  const GK::GKMicros part = time % kSecond / (decimals == 3 ? kMillisecond : 1);
  return fmt::format("{}.{:0{}}", time / kSecond, part, decimals);
}

std::string valueText(const GK::GKValue& value) {
  if (value.type() == GK::GKValue::Type::Float && !std::isfinite(value.toFloat())) {
    return fmt::format("{}", value.toFloat());
  }
  std::string text;
  messages::appendJson(text, value);
  return text;
}

std::string expectedText(const Expectation& expectation, GK::GKMicros start) {
  using Subject = Expectation::Subject;
  const GK::GKMicros from = start + expectation.time.value_or(0);
  switch (expectation.subject) {
  case Subject::Count:
    return countText(expectation);
  case Subject::Order:
    return fmt::format("{} in this order", fmt::join(expectation.order, ", "));
  case Subject::Call:
    return callText(expectation);
  case Subject::Key:
    return (expectation.isAbsent ? "no " : "") + subjectText(expectation) + " " +
           spanText(from, expectation.span);
  default:
    break;
  }
  const std::string subject = subjectText(expectation);
  if (!expectation.isNever) {
    return fmt::format("{} within {} s of {}", subject, secondsText(*expectation.span),
                       momentText(from));
  }
  if (!expectation.time) {
    return "no " + subject;
  }
  return "no " + subject + " " +
         (expectation.span ? spanText(from, expectation.span)
                           : fmt::format("from {} s on", momentText(from)));
}

std::string raisedText(std::string_view name, const GK::GKValue& value, GK::GKMicros time) {
  return fmt::format("{} {} at {} s", name, valueText(value), momentText(time));
}

std::string loggedText(std::string_view text, int level, GK::GKMicros time) {
  return fmt::format("log line {} of level {} at {} s", messages::quotedText(text), level,
                     momentText(time));
}

} // namespace gk::formats
