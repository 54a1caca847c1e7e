#pragma once

#include "app/test/FindTests.h"
#include "app/test/TestProcess.h"
#include "app/test/TestResult.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace gk::app {

struct RunnerOptions {
  TestSettings settings;
  /// So many at once.
  unsigned int jobs = 1;
  /// So often each, to the same bytes.
  unsigned int repeat = 1;
  /// Expected output is written anew instead of being compared; only for inputs that were named
  /// themselves with `isUpdateOfNamed`.
  bool isUpdate = false;
  bool isUpdateOfNamed = false;
};

/// Runs tests, each in a process of its own. While there is one thread.
class TestRunner {
public:
  /// Takes the results in the order of the tests.
  using Receiver = std::function<void(TestResult)>;
  /// Told how many have ended.
  using Progress = std::function<void(std::size_t done)>;

  explicit TestRunner(RunnerOptions options) : fOptions(std::move(options)) {}

  /// Raises `std::system_error` when a process cannot be started.
  void run(const std::vector<TestCase>& tests, const Receiver& receive, const Progress& progress);

private:
  RunnerOptions fOptions;
};

} // namespace gk::app
