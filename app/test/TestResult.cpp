#include "app/test/TestResult.h"

#include "messages/json/JsonWriter.h"

#include <array>
#include <cmath>
#include <utility>

namespace gk::app {

namespace {

constexpr std::array<std::pair<TestResult::Status, const char*>, 5> kStatuses{
    {{TestResult::Status::Passed, "passed"},
     {TestResult::Status::Failed, "failed"},
     {TestResult::Status::Malformed, "malformed"},
     {TestResult::Status::Crashed, "crashed"},
     {TestResult::Status::Timeout, "timeout"}}};

/// Whole microseconds: more digits tell nothing.
double rounded(double seconds) {
  constexpr double perSecond = 1e6;
  return std::round(seconds * perSecond) / perSecond;
}

} // namespace

std::string Complaint::head() const {
  if (file.empty()) {
    return text;
  }
  return file + (line > 0 ? ":" + std::to_string(line) : "") + ": " + text;
}

std::string TestResult::complaintText() const {
  std::string text;
  for (const Complaint& complaint : complaints) {
    text += complaint.head() + "\n";
    for (const std::string& line : complaint.context) {
      text += "    " + line + "\n";
    }
  }
  return text;
}

const char* statusName(TestResult::Status status) {
  return kStatuses.at(static_cast<std::size_t>(status)).second;
}

std::optional<TestResult::Status> findStatus(const std::string& name) {
  for (const auto& [status, text] : kStatuses) {
    if (name == text) {
      return status;
    }
  }
  return std::nullopt;
}

std::string expectationJson(const ExpectationResult& expectation, bool isFull) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject();
  if (isFull) {
    json.key("file").text(expectation.file);
    json.key("t").integer(expectation.time);
  }
  json.key("line").unsignedInteger(expectation.line);
  json.key("holds").boolean(expectation.holds);
  if (expectation.secondsLeft) {
    json.key("margin_s").real(rounded(*expectation.secondsLeft));
  } else if (expectation.margin) {
    json.key("margin").real(*expectation.margin);
  }
  json.key("text").text(expectation.text);
  json.endObject();
  return text;
}

std::string resultJson(const TestResult& result) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject();
  json.key("test").text(result.test);
  json.key("status").text(statusName(result.status));
  json.key("seconds").real(rounded(result.seconds));
  json.key("expectations").beginArray();
  for (const ExpectationResult& expectation : result.expectations) {
    json.raw(expectationJson(expectation, false));
  }
  json.endArray();
  json.endObject();
  return text;
}

std::string sumJson(const TestSum& sum) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject();
  json.key("passed").unsignedInteger(sum.passed);
  json.key("failed").unsignedInteger(sum.failed);
  json.key("seconds").real(rounded(sum.seconds));
  json.key("shard").beginArray().unsignedInteger(sum.shard).unsignedInteger(sum.shards).endArray();
  json.key("tests").unsignedInteger(sum.tests);
  json.endObject();
  return text;
}

} // namespace gk::app
