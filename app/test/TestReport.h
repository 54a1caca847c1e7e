#pragma once

#include "app/test/TestResult.h"

#include <functional>
#include <string>
#include <vector>

namespace gk::app {

/// What people and programs see of tests, as the results come in.
struct ReportOptions {
  /// JSON Lines on standard output instead of text.
  bool isJson = false;
  /// Tests that have passed are told as well, with their margins.
  bool isVerbose = false;
  /// So many of the slowest tests are told at the end.
  unsigned int slowest = 0;
  /// A file for JUnit XML; empty for none.
  std::string junit;
  /// The command that repeats a test alone; null where there is none.
  std::function<std::string(const std::string& test)> alone;
};

/// For one thread.
class TestReport {
public:
  explicit TestReport(ReportOptions options);

  void add(TestResult result);

  /// Tells the sum; `sum.passed` and `sum.failed` are counted here. Raises `OutputError`. Returns
  /// the exit code.
  int finish(TestSum sum);

  std::size_t failed() const noexcept { return fSum.failed; }

private:
  void xTell(const TestResult& result) const;
  void xPrint(const std::string& line) const;
  void xTellPassed(const TestResult& result) const;
  void xTellHeld(const TestResult& result) const;
  void xTellFailed(const TestResult& result) const;
  void xAnnotate(const TestResult& result) const;
  void xTellSlowest() const;

  const ReportOptions fOptions;
  const bool fIsOnGitHub;
  TestSum fSum;
  bool fHasMalformed = false;
  /// For what is written at the end: without what only failed tests need.
  std::vector<TestResult> fKept;
};

/// A word for a shell, in quotes where it needs them.
std::string shellWord(const std::string& word);

} // namespace gk::app
