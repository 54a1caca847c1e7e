#include "formats/lines/ExpectationObject.h"

#include "messages/json/JsonText.h"
#include "messages/json/JsonValue.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace gk::formats {

namespace {

namespace json = boost::json;

constexpr std::string_view kNeverKind = "never";

std::string_view viewIn(json::string_view text) {
  return {text.data(), text.size()};
}

/// The object of an "expect" or "never", being read.
class ExpectMembers {
public:
  ExpectMembers(std::string_view of, const json::value& value) : fOf(of) {
    if (!value.is_object()) {
      throw messages::FormatError(messages::quotedText(of) + " takes an object");
    }
    fObject = &value.get_object();
  }

  bool has(std::string_view name) const { return fObject->contains(name); }

  std::string text(std::string_view name) const {
    const json::value& value = fObject->at(name);
    if (!value.is_string()) {
      fail(name, "takes a string");
    }
    return std::string(viewIn(value.get_string()));
  }

  /// Seconds that are not negative; nothing when absent.
  std::optional<GK::GKMicros> span(std::string_view name) const {
    const std::optional<double> seconds = number(name);
    if (!seconds) {
      return std::nullopt;
    }
    const std::optional<GK::GKMicros> micros = messages::toMicros(*seconds);
    if (!micros || *seconds < 0.0) {
      fail(name, "takes seconds from 0 on");
    }
    return micros;
  }

  /// A number, rounded to float once; nothing when absent.
  std::optional<float> limit(std::string_view name) const {
    const std::optional<double> value = number(name);
    return value ? std::optional(messages::toFloat(*value)) : std::nullopt;
  }

  std::optional<std::uint32_t> count(std::string_view name) const {
    const json::value* value = fObject->if_contains(name);
    if (value == nullptr) {
      return std::nullopt;
    }
    if (!value->is_int64() || value->get_int64() < 0 ||
        value->get_int64() > std::numeric_limits<std::int32_t>::max()) {
      fail(name, "takes an int of 32 bits from 0 on");
    }
    return static_cast<std::uint32_t>(value->get_int64());
  }

  std::vector<std::string> texts(std::string_view name) const {
    const json::value& value = fObject->at(name);
    std::vector<std::string> texts;
    if (value.is_array()) {
      for (const json::value& element : value.get_array()) {
        if (element.is_string()) {
          texts.emplace_back(viewIn(element.get_string()));
        }
      }
    }
    if (!value.is_array() || texts.empty() || texts.size() != value.get_array().size()) {
      fail(name, "takes an array of names");
    }
    return texts;
  }

  int level() const {
    const std::optional<std::uint32_t> level = count("level");
    constexpr std::uint32_t highest = 6;
    if (level && (*level == 0 || *level > highest)) {
      fail("level", "is 1 (fatal) to 6 (debug)");
    }
    return static_cast<int>(level.value_or(0));
  }

  /// "value" and "tolerance".
  ExpectedValue value() const {
    ExpectedValue expected;
    if (const json::value* value = fObject->if_contains("value")) {
      try {
        expected.value = messages::valueFromJson(*value);
      } catch (const messages::FormatError& error) {
        fail("value", error.what());
      }
    }
    if (const std::optional<float> tolerance = limit("tolerance")) {
      if (!expected.value) {
        throw messages::FormatError(messages::quotedText(fOf) +
                                    ": \"tolerance\" needs a \"value\"");
      }
      if (!(*tolerance >= 0.0F)) {
        fail("tolerance", "is not negative");
      }
      expected.tolerance = *tolerance;
    }
    return expected;
  }

  void isTrue(std::string_view name) const {
    const json::value& value = fObject->at(name);
    if (!value.is_bool() || !value.get_bool()) {
      fail(name, "takes true");
    }
  }

  /// Refuses all members but these.
  void allow(std::string_view kind, std::initializer_list<std::string_view> names) const {
    for (const json::key_value_pair& member : *fObject) {
      const std::string_view name = viewIn(member.key());
      if (std::ranges::find(names, name) == names.end()) {
        throw messages::FormatError(messages::quotedText(fOf) + " of " + std::string(kind) +
                                    ": unknown member " + messages::quotedText(name));
      }
    }
  }

  [[noreturn]] void fail(std::string_view name, const std::string& why) const {
    throw messages::FormatError(messages::quotedText(fOf) + ": " + messages::quotedText(name) +
                                " " + why);
  }

private:
  std::optional<double> number(std::string_view name) const {
    const json::value* value = fObject->if_contains(name);
    if (value == nullptr) {
      return std::nullopt;
    }
    const std::optional<double> number = messages::numberFromJson(*value);
    if (!number || !std::isfinite(*number)) {
      fail(name, "takes a number");
    }
    return number;
  }

  std::string_view fOf;
  const json::object* fObject = nullptr;
};

Expectation readCount(const ExpectMembers& members) {
  members.allow("a count", {"event", "count", "atLeast", "atMost", "value", "tolerance"});
  Expectation expectation;
  expectation.subject = Expectation::Subject::Count;
  expectation.name = members.text("event");
  expectation.value = members.value();
  expectation.atLeast = members.count("atLeast");
  expectation.atMost = members.count("atMost");
  if (const std::optional<std::uint32_t> count = members.count("count")) {
    if (expectation.atLeast || expectation.atMost) {
      throw messages::FormatError(
          "\"expect\": \"count\" goes with neither \"atLeast\" nor \"atMost\"");
    }
    expectation.atLeast = count;
    expectation.atMost = count;
  }
  if (expectation.atLeast && expectation.atMost && *expectation.atLeast > *expectation.atMost) {
    throw messages::FormatError("\"expect\": \"atLeast\" is more than \"atMost\"");
  }
  return expectation;
}

Expectation readEvent(const ExpectMembers& members, bool isNever) {
  if (!isNever && (members.has("count") || members.has("atLeast") || members.has("atMost"))) {
    return readCount(members);
  }
  const std::string_view span = isNever ? "for" : "within";
  members.allow("an event", {"event", "value", "tolerance", span});
  Expectation expectation;
  expectation.name = members.text("event");
  expectation.value = members.value();
  expectation.span = members.span(span);
  return expectation;
}

Expectation readLog(const ExpectMembers& members, bool isNever) {
  const std::string_view span = isNever ? "for" : "within";
  members.allow("a log line", {"log", "level", span});
  Expectation expectation;
  expectation.subject = Expectation::Subject::Log;
  expectation.name = members.text("log");
  expectation.level = members.level();
  expectation.span = members.span(span);
  return expectation;
}

Expectation readKey(const ExpectMembers& members) {
  members.allow("a key", {"key", "value", "tolerance", "above", "below", "absent", "for"});
  Expectation expectation;
  expectation.subject = Expectation::Subject::Key;
  expectation.name = members.text("key");
  expectation.value = members.value();
  expectation.value.above = members.limit("above");
  expectation.value.below = members.limit("below");
  expectation.span = members.span("for");
  const bool hasLimits = expectation.value.above || expectation.value.below;
  if (members.has("absent")) {
    members.isTrue("absent");
    expectation.isAbsent = true;
  }
  if (int{expectation.value.value.has_value()} + int{hasLimits} + int{expectation.isAbsent} != 1) {
    throw messages::FormatError(
        "\"expect\" of a key takes \"value\", or \"above\" and \"below\", or "
        "\"absent\"");
  }
  return expectation;
}

Expectation readOrder(const ExpectMembers& members) {
  members.allow("an order", {"order"});
  Expectation expectation;
  expectation.subject = Expectation::Subject::Order;
  expectation.order = members.texts("order");
  return expectation;
}

Expectation readCall(const ExpectMembers& members) {
  members.allow("a call", {"call", "value", "tolerance", "error"});
  Expectation expectation;
  expectation.subject = Expectation::Subject::Call;
  expectation.name = members.text("call");
  expectation.value = members.value();
  if (members.has("error")) {
    expectation.error = members.text("error");
    if (!expectation.value.isAny()) {
      throw messages::FormatError("\"expect\" of a call takes \"value\" or \"error\"");
    }
  }
  return expectation;
}

Expectation readSubject(std::string_view kind, const json::value& value) {
  const bool isNever = kind == kNeverKind;
  const ExpectMembers members(kind, value);
  constexpr std::array<std::string_view, 5> subjects{"event", "log", "key", "order", "call"};
  const auto first = std::ranges::find_if(subjects, [&](auto name) { return members.has(name); });
  if (first != subjects.end()) {
    const auto second =
        std::find_if(first + 1, subjects.end(), [&](auto name) { return members.has(name); });
    if (second != subjects.end()) {
      throw messages::FormatError(messages::quotedText(kind) + " has " +
                                  messages::quotedText(*first) + " and " +
                                  messages::quotedText(*second));
    }
    if (*first == "event") {
      return readEvent(members, isNever);
    }
    if (*first == "log") {
      return readLog(members, isNever);
    }
    if (!isNever) {
      return *first == "key"     ? readKey(members)
             : *first == "order" ? readOrder(members)
                                 : readCall(members);
    }
  }
  throw messages::FormatError(
      isNever ? "\"never\" takes an \"event\" or a \"log\""
              : "\"expect\" takes an \"event\", a \"log\", a \"key\", an \"order\" "
                "or a \"call\"");
}

std::string_view nameOf(Expectation::Subject subject) {
  constexpr std::array<std::string_view, 6> names{"an event", "a log line", "a key",
                                                  "a count",  "an order",   "a call"};
  return names.at(static_cast<std::size_t>(subject));
}

/// Checks whether a time is there where one has to be, and sets the default of the window.
void settle(Expectation& expectation, std::string_view kind, bool hasTime) {
  using Subject = Expectation::Subject;
  const std::string what =
      messages::quotedText(kind) + " of " + std::string(nameOf(expectation.subject));
  const bool isWhole = expectation.subject == Subject::Count ||
                       expectation.subject == Subject::Order ||
                       expectation.subject == Subject::Call;
  if (isWhole && hasTime) {
    throw messages::FormatError(what + " takes no \"t\": it is about the whole run");
  }
  if (!isWhole && !hasTime && !expectation.isNever) {
    throw messages::FormatError(what + " needs a time \"t\"");
  }
  if (expectation.isNever && !hasTime && expectation.span) {
    throw messages::FormatError("\"never\": \"for\" needs a time \"t\"");
  }
  const bool isAwaited =
      (expectation.subject == Subject::Event || expectation.subject == Subject::Log) &&
      !expectation.isNever;
  if (isAwaited && !expectation.span) {
    expectation.span = Expectation::kWithin;
  }
}

} // namespace

Expectation readExpectation(std::string_view kind, const json::value& value, bool hasTime) {
  Expectation expectation = readSubject(kind, value);
  expectation.isNever = kind == kNeverKind;
  settle(expectation, kind, hasTime);
  return expectation;
}

} // namespace gk::formats
