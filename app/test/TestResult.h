#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace gk::app {

/// What became of one expectation of a test.
struct ExpectationResult {
  std::string file;
  std::size_t line = 0;
  bool holds = false;
  std::string text;
  /// Of one that holds: seconds left in its window, or the distance of a number to its limit.
  std::optional<double> secondsLeft;
  std::optional<double> margin;
  /// Where to look in the output, in microseconds since the start.
  std::int64_t time = 0;
};

/// Why a test failed: one of the reasons.
struct Complaint {
  std::string file;
  /// 0 for what is no matter of a line.
  std::size_t line = 0;
  std::string text;
  /// Lines of output around it.
  std::vector<std::string> context;

  /// "FILE:LINE: text".
  std::string head() const;
};

/// What became of a test.
struct TestResult {
  enum class Status : std::uint8_t { Passed, Failed, Malformed, Crashed, Timeout };

  std::string test;
  Status status = Status::Passed;
  double seconds = 0.0;
  std::vector<ExpectationResult> expectations;
  std::vector<Complaint> complaints;
  /// What it printed, when it failed; shortened.
  std::string out;
  std::string err;
  /// A file of expected output that was written anew.
  std::string updated;

  bool hasPassed() const { return status == Status::Passed; }
  /// All complaints with what is around them.
  std::string complaintText() const;
};

/// "passed", "failed", "malformed", "crashed", "timeout".
const char* statusName(TestResult::Status status);
std::optional<TestResult::Status> findStatus(const std::string& name);

/// All tests of a run, or of a part of it.
struct TestSum {
  std::size_t passed = 0;
  std::size_t failed = 0;
  double seconds = 0.0;
  /// Which part of how many, from 1.
  std::size_t shard = 1;
  std::size_t shards = 1;
  /// So many tests there are in all parts.
  std::size_t tests = 0;
};

/// One line of JSON each, without its end.
std::string resultJson(const TestResult& result);
std::string sumJson(const TestSum& sum);

/// An expectation as a member of `resultJson`; with `isFull` all that is known of it.
std::string expectationJson(const ExpectationResult& expectation, bool isFull);

} // namespace gk::app
