#include "app/test/TestReport.h"

#include "app/options/Command.h"
#include "app/test/JUnit.h"
#include "formats/text/Printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace gk::app {

namespace {

/// A message of GitHub's workflow commands is one line; properties end at ":" and ",".
std::string escaped(std::string_view text, bool isProperty) {
  std::string result;
  for (const char letter : text) {
    switch (letter) {
    case '%':
      result += "%25";
      break;
    case '\r':
      result += "%0D";
      break;
    case '\n':
      result += "%0A";
      break;
    default:
      if (isProperty && (letter == ':' || letter == ',')) {
        result += letter == ':' ? "%3A" : "%2C";
      } else {
        result += letter;
      }
    }
  }
  return result;
}

bool isOnGitHub() {
  const char* value = std::getenv("GITHUB_ACTIONS");
  return value != nullptr && *value != '\0' && std::string_view(value) != "false";
}

std::string marginText(const ExpectationResult& expectation) {
  if (expectation.secondsLeft) {
    return fmt::format(", {:.3f} s left", *expectation.secondsLeft);
  }
  return expectation.margin ? fmt::format(", margin {:g}", *expectation.margin) : std::string();
}

} // namespace

std::string shellWord(const std::string& word) {
  constexpr std::string_view harmless =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+=:,@%";
  if (!word.empty() && word.find_first_not_of(harmless) == std::string::npos) {
    return word;
  }
  std::string quoted = "'";
  for (const char letter : word) {
    quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  }
  return quoted + "'";
}

TestReport::TestReport(ReportOptions options)
    : fOptions(std::move(options)), fIsOnGitHub(isOnGitHub()) {}

void TestReport::add(TestResult result) {
  ++(result.hasPassed() ? fSum.passed : fSum.failed);
  fHasMalformed = fHasMalformed || result.status == TestResult::Status::Malformed;
  if (fOptions.isJson) {
    fmt::print("{}\n", resultJson(result));
  }
  xTell(result);
  std::fflush(stdout);
  if (fIsOnGitHub && !result.hasPassed()) {
    xAnnotate(result);
  }
  if (!fOptions.junit.empty() || fOptions.slowest > 0) {
    result.expectations.clear();
    fKept.push_back(std::move(result));
  }
}

void TestReport::xPrint(const std::string& line) const {
  // Where programs read standard output they get JSON Lines only.
  fmt::print(fOptions.isJson ? stderr : stdout, "{}\n", formats::printable(line));
}

void TestReport::xTell(const TestResult& result) const {
  if (!result.updated.empty()) {
    xPrint("updated " + result.updated);
  }
  if (!result.hasPassed()) {
    xTellFailed(result);
  } else if (fOptions.isVerbose && !fOptions.isJson) {
    xTellPassed(result);
  }
}

void TestReport::xTellPassed(const TestResult& result) const {
  xPrint(fmt::format("{}: passed in {:.3f} s", result.test, result.seconds));
  xTellHeld(result);
}

void TestReport::xTellHeld(const TestResult& result) const {
  for (const ExpectationResult& expectation : result.expectations) {
    if (expectation.holds) {
      xPrint(fmt::format("  {}:{}: {}{}", expectation.file, expectation.line, expectation.text,
                         marginText(expectation)));
    }
  }
}

void TestReport::xTellFailed(const TestResult& result) const {
  xPrint(fmt::format("{}: {}", result.test, statusName(result.status)));
  const std::vector<std::string>* shown = nullptr;
  for (const Complaint& complaint : result.complaints) {
    xPrint(complaint.head());
    // The same lines again would tell nothing.
    if (shown == nullptr || *shown != complaint.context) {
      for (const std::string& line : complaint.context) {
        xPrint("    " + line);
      }
    }
    shown = &complaint.context;
  }
  if (fOptions.isVerbose && !fOptions.isJson) {
    xTellHeld(result);
  }
  if (fOptions.alone) {
    xPrint("  alone: " + fOptions.alone(result.test));
  }
}

void TestReport::xAnnotate(const TestResult& result) const {
  std::FILE* out = fOptions.isJson ? stderr : stdout;
  for (const Complaint& complaint : result.complaints) {
    fmt::print(out, "::error file={}{},title={}::{}\n",
               escaped(complaint.file.empty() ? result.test : complaint.file, true),
               complaint.line > 0 ? fmt::format(",line={}", complaint.line) : "",
               escaped(result.test + " " + statusName(result.status), true),
               escaped(complaint.text, false));
  }
}

void TestReport::xTellSlowest() const {
  std::vector<const TestResult*> tests;
  tests.reserve(fKept.size());
  for (const TestResult& result : fKept) {
    tests.push_back(&result);
  }
  std::ranges::stable_sort(tests, std::greater<>(), [](const auto* test) { return test->seconds; });
  tests.resize(std::min<std::size_t>(tests.size(), fOptions.slowest));
  for (const TestResult* test : tests) {
    xPrint(fmt::format("{:10.3f} s  {}", test->seconds, test->test));
  }
}

int TestReport::finish(TestSum sum) {
  sum.passed = fSum.passed;
  sum.failed = fSum.failed;
  if (!fOptions.junit.empty()) {
    writeJUnit(fOptions.junit, fKept, sum);
  }
  if (fOptions.isJson) {
    fmt::print("{}\n", sumJson(sum));
  }
  xTellSlowest();
  if (!fOptions.isJson) {
    fmt::print("{} passed, {} failed in {:.1f} s\n", sum.passed, sum.failed, sum.seconds);
  }
  if (fHasMalformed) {
    return kBadInput;
  }
  return sum.failed > 0 ? kFailure : kSuccess;
}

} // namespace gk::app
