#include "app/test/TestRunner.h"

#include "app/options/Command.h"
#include "app/test/Compare.h"
#include "formats/files/OutputError.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <tuple>
#include <utility>

namespace gk::app {

namespace {

/// So often people are shown how far the tests have come, whatever becomes of them.
constexpr std::chrono::milliseconds kBetweenLooks{200};

/// So many failures of a test are shown with the output around them.
constexpr std::size_t kMostContexts = 10;

/// "FILE:LINE: text" taken apart, and any other text as it is.
Complaint complaintIn(const std::string& line) {
  const std::size_t end = line.find(": ");
  const std::size_t colon = end == std::string::npos ? end : line.rfind(':', end - 1);
  std::size_t number = 0;
  if (colon == std::string::npos || colon == 0) {
    return {{}, 0, line, {}};
  }
  const char* last = line.data() + end;
  const auto [rest, error] = std::from_chars(line.data() + colon + 1, last, number);
  if (error != std::errc() || rest != last) {
    return {{}, 0, line, {}};
  }
  return {line.substr(0, colon), number, line.substr(end + 2), {}};
}

/// A test on its way: one run after the other, each in a process of its own.
class TestAtWork {
public:
  TestAtWork(const TestCase& test, const RunnerOptions& options)
      : fTest(test), fOptions(options),
        fIsUpdate(options.isUpdate && (test.isNamed || !options.isUpdateOfNamed) &&
                  (test.isNamed || test.hasGolden)) {
    fResult.test = test.input;
    start({fTest.hasGolden || fIsUpdate, fOptions.repeat > 1});
  }

  TestProcess& process() { return *fProcess; }

  /// A run has ended. True when that was the last one.
  bool ended(int status) {
    fProcess->ended(status);
    if (fStep == Step::Context) {
      addContexts();
      return true;
    }
    fResult.seconds = std::max(fResult.seconds, fProcess->seconds());
    if (fStep == Step::First) {
      judge();
    } else {
      compareRuns();
    }
    return !goOn();
  }

  TestResult takeResult() { return std::move(fResult); }

private:
  enum class Step { First, Again, Context };

  void start(TestProcess::Keep keep) { fProcess.emplace(fTest, fOptions.settings, keep); }

  /// Starts the next run. False when there is none.
  bool goOn() {
    const bool isWhole = fResult.status == TestResult::Status::Passed ||
                         fResult.status == TestResult::Status::Failed;
    if (fResult.hasPassed() && fRuns < fOptions.repeat) {
      fStep = Step::Again;
      if (fRuns == 1) {
        fFirst.emplace(std::move(fProcess->all()));
      }
      ++fRuns;
      start({false, true});
      return true;
    }
    if (isWhole && !fMoments.empty()) {
      fStep = Step::Context;
      start({false, true});
      return true;
    }
    return false;
  }

  /// What came of the run itself.
  void judge() {
    const TestWishes wishes = fProcess->wishes();
    fResult.expectations = fProcess->expectations();
    std::ranges::stable_sort(fResult.expectations, {}, [this](const ExpectationResult& one) {
      return std::tuple(one.file != fTest.input, one.line);
    });
    if (fProcess->isTimeout()) {
      fail(TestResult::Status::Timeout,
           {fTest.input,
            0,
            fmt::format("did not end within {} s", fOptions.settings.timeout.count()),
            {}});
    } else if (fProcess->signal() != 0) {
      const char* name = ::sigabbrev_np(fProcess->signal());
      fail(TestResult::Status::Crashed,
           {fTest.input,
            0,
            fmt::format("ended by SIG{}{}", name != nullptr ? name : "?", lastWords()),
            {}});
    } else {
      judgeCode(wishes);
      judgeTexts(wishes);
      judgeGolden();
    }
  }

  void judgeCode(const TestWishes& wishes) {
    const int code = fProcess->code();
    const bool isTold = code == kExpectationFailed && wishes.exit == kSuccess;
    fHasEndedWell = code == wishes.exit || isTold;
    // What else failed tells more than what did not come of it.
    if (fHasEndedWell && wishes.exit != kExpectationFailed) {
      for (const ExpectationResult& expectation : fResult.expectations) {
        if (!expectation.holds) {
          fMoments.emplace(fResult.complaints.size(), expectation.time);
          fail(TestResult::Status::Failed,
               {expectation.file, expectation.line, expectation.text, {}});
        }
      }
    }
    if (fHasEndedWell) {
      return;
    }
    if (code == kBadInput) {
      fail(TestResult::Status::Malformed, complaintIn(lastLine("")));
    } else {
      fail(TestResult::Status::Failed,
           {wishes.file.empty() ? fTest.input : wishes.file,
            wishes.line,
            fmt::format("expected exit code {}, but {}{}", wishes.exit, code, lastWords()),
            {}});
    }
  }

  void judgeTexts(const TestWishes& wishes) {
    if (!wishes.error.empty() && fProcess->err().tail().find(wishes.error) == std::string::npos) {
      fail(TestResult::Status::Failed,
           {wishes.file,
            wishes.line,
            fmt::format("expected \"{}\" on standard error, but{}", wishes.error, lastWords()),
            {}});
    }
    if (wishes.out) {
      std::string wanted = *wishes.out;
      if (!wanted.empty() && !wanted.ends_with('\n')) {
        wanted += '\n';
      }
      if (const std::string out = fProcess->out().tail(); out != wanted) {
        fail(TestResult::Status::Failed,
             {wishes.file,
              wishes.line,
              fmt::format("expected \"{}\" on standard output, but \"{}\"", *wishes.out, out),
              {}});
      }
    }
  }

  void judgeGolden() {
    const bool hasOutput = fProcess->code() != kBadInput;
    if (fIsUpdate) {
      if (fHasEndedWell) {
        updateGolden(hasOutput);
      }
      return;
    }
    if (!fTest.hasGolden || fResult.status == TestResult::Status::Malformed) {
      return;
    }
    const std::string output = fProcess->golden().path();
    if (!hasOutput) {
      fail(TestResult::Status::Failed,
           {fTest.golden, 0, "the run has left no output to be compared with it", {}});
    } else if (isSameFile(fTest.golden, output)) {
      removeBeside(fTest.golden);
    } else {
      fail(TestResult::Status::Failed,
           firstDifference(fTest.golden, output, fTest.golden, "output"));
      leaveBeside(output, fTest.golden);
    }
  }

  void updateGolden(bool hasOutput) {
    removeBeside(fTest.golden);
    try {
      if (!hasOutput) {
        if (fTest.hasGolden) {
          std::filesystem::remove(fTest.golden);
          fResult.updated = fTest.golden;
        }
      } else if (!fTest.hasGolden || !isSameFile(fTest.golden, fProcess->golden().path())) {
        replaceFile(fProcess->golden().path(), fTest.golden);
        fResult.updated = fTest.golden;
      }
    } catch (const std::exception& error) {
      fail(TestResult::Status::Failed, {fTest.golden, 0, error.what(), {}});
    }
  }

  void compareRuns() {
    if (fProcess->isTimeout() || fProcess->signal() != 0) {
      judge();
    } else if (!isSameFile(fFirst->path(), fProcess->all().path())) {
      Complaint difference =
          firstDifference(fFirst->path(), fProcess->all().path(), fTest.input,
                          fmt::format("runs 1 and {} of the same input differ", fRuns));
      difference.line = 0;
      fail(TestResult::Status::Failed, std::move(difference));
    }
  }

  void addContexts() {
    std::size_t shown = 0;
    for (const auto& [index, time] : fMoments) {
      if (shown++ == kMostContexts) {
        break;
      }
      fResult.complaints[index].context = linesAround(fProcess->all().path(), time);
    }
  }

  void fail(TestResult::Status status, Complaint complaint) {
    fResult.status = std::max(fResult.status, status);
    fResult.complaints.push_back(std::move(complaint));
    fResult.out = fProcess->out().tail();
    fResult.err = fProcess->err().tail();
  }

  /// The last line of standard error that begins so; empty if there is none.
  std::string lastLine(const std::string& beginning) const {
    std::istringstream lines(fProcess->err().tail());
    std::string last;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with(beginning)) {
        last = line;
      }
    }
    return last;
  }
  std::string lastWords() const {
    // What the program itself complains of comes before what it sums up to.
    const std::string complaint = lastLine("gk: ");
    const std::string line = complaint.empty() ? lastLine("") : complaint;
    return line.empty() ? " and nothing on standard error" : ": " + line;
  }

  const TestCase& fTest;
  const RunnerOptions& fOptions;
  const bool fIsUpdate;
  Step fStep = Step::First;
  unsigned int fRuns = 1;
  std::optional<TestProcess> fProcess;
  /// With the exit code that was expected, or only for expectations that do not hold.
  bool fHasEndedWell = false;
  /// The whole output of the first run.
  std::optional<Scratch> fFirst;
  /// When what complaints are about happened.
  std::map<std::size_t, std::int64_t> fMoments;
  TestResult fResult;
};

/// Keeps the signal that a process has ended for `waitForEnd`.
class ChildSignal {
public:
  ChildSignal() {
    sigemptyset(&fSignal);
    sigaddset(&fSignal, SIGCHLD);
    sigprocmask(SIG_BLOCK, &fSignal, &fFormer);
  }
  ~ChildSignal() { sigprocmask(SIG_SETMASK, &fFormer, nullptr); }
  ChildSignal(const ChildSignal&) = delete;
  ChildSignal& operator=(const ChildSignal&) = delete;

  /// Until a process has ended, or until then.
  void wait(TestProcess::Steady::time_point until) const {
    const auto left = std::max<std::chrono::nanoseconds>(until - TestProcess::Steady::now(),
                                                         std::chrono::nanoseconds(0));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    timespec time{};
    time.tv_sec = seconds.count();
    time.tv_nsec = (left - seconds).count();
    sigtimedwait(&fSignal, nullptr, &time);
  }

private:
  sigset_t fSignal{};
  sigset_t fFormer{};
};

} // namespace

void TestRunner::run(const std::vector<TestCase>& tests, const Receiver& receive,
                     const Progress& progress) {
  loadForTests(fOptions.settings);
  const ChildSignal ends;
  std::map<std::size_t, std::unique_ptr<TestAtWork>> atWork;
  std::map<std::size_t, TestResult> done;
  std::size_t next = 0;
  std::size_t received = 0;
  const auto finish = [&](std::size_t index) {
    done.emplace(index, atWork.at(index)->takeResult());
    atWork.erase(index);
    while (!done.empty() && done.begin()->first == received) {
      receive(std::move(done.begin()->second));
      done.erase(done.begin());
      ++received;
    }
  };
  while (received < tests.size()) {
    while (next < tests.size() && atWork.size() < fOptions.jobs) {
      atWork.emplace(next, std::make_unique<TestAtWork>(tests[next], fOptions));
      ++next;
    }
    auto deadline = TestProcess::Steady::now() + kBetweenLooks;
    for (const auto& [index, test] : atWork) {
      deadline = std::min(deadline, test->process().deadline());
    }
    ends.wait(deadline);
    std::vector<std::size_t> ended;
    for (const auto& [index, test] : atWork) {
      TestProcess& process = test->process();
      if (process.deadline() <= TestProcess::Steady::now() && !process.isTimeout()) {
        process.end();
      }
      int status = 0;
      if (::waitpid(process.pid(), &status, process.isTimeout() ? 0 : WNOHANG) == process.pid() &&
          test->ended(status)) {
        ended.push_back(index);
      }
    }
    for (const std::size_t index : ended) {
      finish(index);
    }
    progress(received + done.size());
  }
}

} // namespace gk::app
