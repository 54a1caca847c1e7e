#include "messages/json/Json.h"

#include "messages/json/JsonText.h"
#include "messages/text/Numbers.h"

#include <boost/json/basic_parser_impl.hpp>

#include <charconv>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace gk::messages {

namespace {

namespace json = boost::json;

/// Puts the value together from what the parser finds. Numbers are read here, from their texts: the
/// parser's own conversion is not exact.
class ValueBuilder {
public:
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

  json::value takeResult() { return std::move(fResult); }

  /// What the builder itself found wrong; empty when it was the parser.
  const std::string& problem() const { return fProblem; }

  bool on_document_begin(json::error_code&) { return true; }
  bool on_document_end(json::error_code&) { return true; }
  bool on_object_begin(json::error_code&) {
    fOpen.push_back({json::object(), {}});
    return true;
  }
  bool on_object_end(std::size_t, json::error_code&) { return xClose(); }
  bool on_array_begin(json::error_code&) {
    fOpen.push_back({json::array(), {}});
    return true;
  }
  bool on_array_end(std::size_t, json::error_code&) { return xClose(); }
  bool on_key_part(json::string_view part, std::size_t, json::error_code&) {
    return xCollect(part);
  }
  bool on_key(json::string_view part, std::size_t, json::error_code& error) {
    xCollect(part);
    std::string key = std::exchange(fText, {});
    if (fOpen.back().container.get_object().contains(key)) {
      return xFail(error, "member " + quotedText(key) + " stands twice");
    }
    fOpen.back().key = std::move(key);
    return true;
  }
  bool on_string_part(json::string_view part, std::size_t, json::error_code&) {
    return xCollect(part);
  }
  bool on_string(json::string_view part, std::size_t, json::error_code&) {
    xCollect(part);
    xAdd(json::value(std::exchange(fText, {})));
    return true;
  }
  bool on_number_part(json::string_view part, json::error_code&) { return xCollect(part); }
  bool on_int64(std::int64_t, json::string_view part, json::error_code& error) {
    return xAddNumber(part, error);
  }
  bool on_uint64(std::uint64_t, json::string_view part, json::error_code& error) {
    return xAddNumber(part, error);
  }
  bool on_double(double, json::string_view part, json::error_code& error) {
    return xAddNumber(part, error);
  }
  bool on_bool(bool value, json::error_code&) {
    xAdd(json::value(value));
    return true;
  }
  bool on_null(json::error_code&) {
    xAdd(json::value(nullptr));
    return true;
  }
  bool on_comment_part(json::string_view, json::error_code&) { return true; }
  bool on_comment(json::string_view, json::error_code&) { return true; }

private:
  /// An array or object that has not ended yet.
  struct Open {
    json::value container;
    /// The member that the next value belongs to.
    std::string key;
  };

  bool xFail(json::error_code& error, std::string problem) {
    fProblem = std::move(problem);
    error = json::error::syntax;
    return false;
  }

  bool xCollect(json::string_view part) {
    fText.append(part.data(), part.size());
    return true;
  }

  void xAdd(json::value value) {
    if (fOpen.empty()) {
      fResult = std::move(value);
    } else if (Open& open = fOpen.back(); open.container.is_array()) {
      open.container.get_array().push_back(std::move(value));
    } else {
      open.container.get_object().emplace(open.key, std::move(value));
    }
  }

  bool xClose() {
    json::value closed = std::move(fOpen.back().container);
    fOpen.pop_back();
    xAdd(std::move(closed));
    return true;
  }

  bool xAddNumber(json::string_view part, json::error_code& error) {
    xCollect(part);
    const std::string text = std::exchange(fText, {});
    if (text.find_first_of(".eE") == std::string::npos) {
      std::int64_t value = 0;
      const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
      if (status != std::errc()) {
        return xFail(error, "the int " + text.substr(0, kMaxDigitsShown) + " is beyond 64 bits");
      }
      xAdd(json::value(value));
      return true;
    }
    const std::optional<double> value = parseDouble(text);
    if (!value) {
      return xFail(error, quotedText(text) + " is no number");
    }
    xAdd(json::value(*value));
    return true;
  }

  static constexpr std::size_t kMaxDigitsShown = 40;

  json::value fResult;
  std::vector<Open> fOpen;
  std::string fText;
  std::string fProblem;
};

[[noreturn]] void fail(std::size_t parsed, const std::string& problem) {
  throw FormatError("column " + std::to_string(parsed + 1) + ": " + problem);
}

} // namespace

json::value parseJson(std::string_view text) {
  json::parse_options options;
  options.max_depth = kJsonDepth;
  json::basic_parser<ValueBuilder> parser(options);
  json::error_code error;
  const std::size_t parsed = parser.write_some(false, text.data(), text.size(), error);
  if (error) {
    const std::string& problem = parser.handler().problem();
    fail(parsed, problem.empty() ? error.message() : problem);
  }
  if (parsed < text.size()) {
    fail(parsed, "more text after the end");
  }
  return parser.handler().takeResult();
}

} // namespace gk::messages
