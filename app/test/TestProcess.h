#pragma once

#include "app/test/FindTests.h"
#include "app/test/Scratch.h"
#include "app/test/TestResult.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace gk::app {

/// What the command line says of how every test is run.
struct TestSettings {
  /// Instead of the libraries that files name, and ours.
  std::vector<std::string> libraries;
  std::vector<std::string> settings;
  std::chrono::duration<double> timeout{60.0};
};

/// Loads the library that most tests need into this process, so that those forked from it have it.
/// A library that cannot stand that is left to the tests. While there is one thread.
void loadForTests(const TestSettings& settings);

/// What the file of a test wants of its run.
struct TestWishes {
  std::string file;
  std::size_t line = 0;
  int exit = 0;
  std::string error;
  std::optional<std::string> out;
};

/// One run of a test, in a process of its own that is forked from this one. While there is one
/// thread.
class TestProcess {
public:
  using Steady = std::chrono::steady_clock;

  /// What is kept of the run's output.
  struct Keep {
    /// What is compared with expected output.
    bool golden = false;
    /// Everything.
    bool all = false;
  };

  /// Starts it. Raises `std::system_error`.
  TestProcess(const TestCase& test, const TestSettings& settings, Keep keep);
  /// Ends it if it has not ended.
  ~TestProcess();
  TestProcess(const TestProcess&) = delete;
  TestProcess& operator=(const TestProcess&) = delete;

  pid_t pid() const noexcept { return fPid; }
  Steady::time_point deadline() const noexcept { return fDeadline; }

  /// It has taken too long.
  void end();
  /// It has ended; `status` is what waitpid tells.
  void ended(int status);

  // Once it has ended:

  bool isTimeout() const noexcept { return fIsTimeout; }
  double seconds() const noexcept { return fSeconds; }
  /// The signal that ended it, or 0.
  int signal() const;
  int code() const;

  const Scratch& out() const noexcept { return fOut; }
  const Scratch& err() const noexcept { return fErr; }
  const Scratch& golden() const noexcept { return *fGolden; }
  Scratch& all() noexcept { return *fAll; }

  /// What it told of itself; the wishes are those of no file when it did not get so far.
  TestWishes wishes() const;
  std::vector<ExpectationResult> expectations() const;

private:
  [[noreturn]] void xRun(const TestCase& test, const TestSettings& settings) const;

  const Steady::time_point fStart = Steady::now();
  const Steady::time_point fDeadline;
  pid_t fPid = -1;
  bool fHasEnded = false;
  bool fIsTimeout = false;
  int fStatus = 0;
  double fSeconds = 0.0;
  Scratch fOut;
  Scratch fErr;
  Scratch fTold;
  std::optional<Scratch> fGolden;
  std::optional<Scratch> fAll;
};

} // namespace gk::app
