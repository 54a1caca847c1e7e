#include "app/test/Merge.h"

#include "formats/text/InputError.h"
#include "formats/text/LineReader.h"
#include "messages/json/Json.h"
#include "messages/text/FormatError.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>
#include <fmt/format.h>

#include <map>
#include <optional>
#include <string_view>
#include <utility>

namespace gk::app {

namespace {

namespace json = boost::json;

/// The results of one shard.
struct Shard {
  std::string file;
  std::size_t lines = 0;
  std::vector<TestResult> results;
  std::optional<TestSum> sum;
};

const json::value& memberOf(const json::object& object, const char* name, json::kind kind) {
  const json::value* value = object.if_contains(name);
  if (value == nullptr || value->kind() != kind) {
    throw messages::FormatError(fmt::format("no line of `gk test --json`: \"{}\" is {}", name,
                                            value == nullptr ? "missing" : "of another type"));
  }
  return *value;
}

std::string stringOf(const json::object& object, const char* name) {
  const json::string& text = memberOf(object, name, json::kind::string).get_string();
  return {text.data(), text.size()};
}

std::size_t countOf(const json::value& value) {
  if (!value.is_int64() || value.get_int64() < 0) {
    throw messages::FormatError("no line of `gk test --json`: a count is none");
  }
  return static_cast<std::size_t>(value.get_int64());
}

double secondsIn(const json::object& object) {
  const json::value* value = object.if_contains("seconds");
  if (value == nullptr || !value->is_number()) {
    throw messages::FormatError("no line of `gk test --json`: \"seconds\" is no number");
  }
  return value->to_number<double>();
}

std::optional<double> numberIn(const json::object& object, const char* name) {
  const json::value* value = object.if_contains(name);
  return value != nullptr && value->is_number() ? std::optional(value->to_number<double>())
                                                : std::nullopt;
}

ExpectationResult readExpectationResult(const json::value& value, const std::string& test) {
  if (!value.is_object()) {
    throw messages::FormatError("no line of `gk test --json`: an expectation is no object");
  }
  const json::object& object = value.get_object();
  ExpectationResult result;
  result.file = test;
  result.line = countOf(memberOf(object, "line", json::kind::int64));
  result.holds = memberOf(object, "holds", json::kind::bool_).get_bool();
  result.text = stringOf(object, "text");
  result.secondsLeft = numberIn(object, "margin_s");
  result.margin = numberIn(object, "margin");
  return result;
}

TestResult readResult(const json::object& object) {
  TestResult result;
  result.test = stringOf(object, "test");
  const std::string status = stringOf(object, "status");
  const std::optional<TestResult::Status> known = findStatus(status);
  if (!known) {
    throw messages::FormatError("no line of `gk test --json`: unknown status " + status);
  }
  result.status = *known;
  result.seconds = secondsIn(object);
  for (const json::value& value : memberOf(object, "expectations", json::kind::array).get_array()) {
    result.expectations.push_back(readExpectationResult(value, result.test));
    const ExpectationResult& expectation = result.expectations.back();
    if (!expectation.holds) {
      result.complaints.push_back({expectation.file, expectation.line, expectation.text, {}});
    }
  }
  if (!result.hasPassed() && result.complaints.empty()) {
    result.complaints.push_back({result.test, 0, status, {}});
  }
  return result;
}

TestSum readSum(const json::object& object) {
  TestSum sum;
  sum.passed = countOf(memberOf(object, "passed", json::kind::int64));
  sum.failed = countOf(memberOf(object, "failed", json::kind::int64));
  sum.seconds = secondsIn(object);
  const json::array& shard = memberOf(object, "shard", json::kind::array).get_array();
  if (shard.size() != 2) {
    throw messages::FormatError("no line of `gk test --json`: \"shard\" is not [K, N]");
  }
  sum.shard = countOf(shard[0]);
  sum.shards = countOf(shard[1]);
  sum.tests = countOf(memberOf(object, "tests", json::kind::int64));
  if (sum.shard < 1 || sum.shard > sum.shards) {
    throw messages::FormatError("no line of `gk test --json`: there is no such shard");
  }
  return sum;
}

Shard readShard(const std::string& file) {
  formats::LineReader reader(file);
  Shard shard;
  shard.file = file;
  while (const std::optional<std::string_view> line = reader.next()) {
    try {
      if (shard.sum) {
        throw messages::FormatError("there is a line behind the sum");
      }
      const json::value value = messages::parseJson(*line);
      if (!value.is_object()) {
        throw messages::FormatError("no line of `gk test --json`");
      }
      if (value.get_object().contains("test")) {
        shard.results.push_back(readResult(value.get_object()));
      } else {
        shard.sum = readSum(value.get_object());
      }
    } catch (const messages::FormatError& error) {
      throw reader.error(error.what());
    }
  }
  shard.lines = reader.line();
  if (!shard.sum) {
    throw formats::InputError(file, 0, "has no sum in its last line: the tests have not ended");
  }
  if (shard.sum->passed + shard.sum->failed != shard.results.size()) {
    throw formats::InputError(file, shard.lines, "the sum is of another number of tests");
  }
  return shard;
}

/// Puts the shards' results back into one row. Raises `InputError` where they are of several.
std::vector<TestResult> inOneRow(std::vector<Shard>& shards, std::size_t tests) {
  std::vector<TestResult> results;
  results.reserve(tests);
  for (std::size_t i = 0; i < tests; ++i) {
    Shard& shard = shards[i % shards.size()];
    const std::size_t place = i / shards.size();
    if (place >= shard.results.size() ||
        (!results.empty() && shard.results[place].test <= results.back().test)) {
      throw formats::InputError(shard.file, 0, "is a shard of other tests");
    }
    results.push_back(std::move(shard.results[place]));
  }
  return results;
}

} // namespace

MergedResults mergeResults(const std::vector<std::string>& files) {
  std::map<std::size_t, Shard> byNumber;
  MergedResults merged;
  for (const std::string& file : files) {
    Shard shard = readShard(file);
    const TestSum sum = *shard.sum;
    if (byNumber.empty()) {
      merged.sum.shards = sum.shards;
      merged.sum.tests = sum.tests;
    } else if (sum.shards != merged.sum.shards || sum.tests != merged.sum.tests) {
      throw formats::InputError(
          file, shard.lines,
          fmt::format("is a shard of other tests: {} of {} with {} tests, not of {} with {}",
                      sum.shard, sum.shards, sum.tests, merged.sum.shards, merged.sum.tests));
    }
    const auto [known, isNew] = byNumber.try_emplace(sum.shard, std::move(shard));
    if (!isNew) {
      throw formats::InputError(file, 0,
                                fmt::format("shard {} of {} is in {} already", sum.shard,
                                            sum.shards, known->second.file));
    }
    merged.sum.passed += sum.passed;
    merged.sum.failed += sum.failed;
    merged.sum.seconds += sum.seconds;
  }
  std::vector<Shard> shards;
  std::size_t found = 0;
  for (std::size_t number = 1; number <= merged.sum.shards; ++number) {
    const auto shard = byNumber.find(number);
    if (shard == byNumber.end()) {
      throw formats::InputError(
          files.front(), 0,
          fmt::format("is one of {} shards, and shard {} is missing", merged.sum.shards, number));
    }
    found += shard->second.results.size();
    shards.push_back(std::move(shard->second));
  }
  if (found != merged.sum.tests) {
    throw formats::InputError(
        files.front(), 0,
        fmt::format("is a shard of {} tests, and the shards have {}", merged.sum.tests, found));
  }
  merged.results = inOneRow(shards, merged.sum.tests);
  merged.sum.shards = 1;
  return merged;
}

} // namespace gk::app
