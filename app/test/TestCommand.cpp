#include "app/test/TestCommand.h"

#include "app/session/Complaints.h"
#include "app/session/SessionOptions.h"
#include "app/terminal/ProgressLine.h"
#include "app/test/FindTests.h"
#include "app/test/Merge.h"
#include "app/test/TestReport.h"
#include "app/test/TestRunner.h"
#include "formats/files/OutputError.h"
#include "formats/text/InputError.h"
#include "formats/text/NamePattern.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace gk::app {

namespace {

/// What a run of tests and a join of results have in common.
struct ShowOptions {
  bool isJson = false;
  bool isVerbose = false;
  unsigned int slowest = 0;
  std::string junit;
};

struct TestOptions {
  std::vector<std::string> paths;
  ShowOptions show;
  unsigned int jobs = std::max(1U, std::thread::hardware_concurrency());
  std::string pattern;
  bool isListing = false;
  double timeout = 60.0;
  std::vector<std::string> libraries;
  std::vector<std::string> settings;
  unsigned int repeat = 1;
  std::string shard;
  bool isUpdate = false;
};

struct ShardNumber {
  std::size_t number = 1;
  std::size_t of = 1;
};

/// "K/N"; nothing for anything else.
std::optional<ShardNumber> parseShard(std::string_view text) {
  const auto count = [](std::string_view digits, std::size_t& value) {
    const char* last = digits.data() + digits.size();
    const auto [end, error] = std::from_chars(digits.data(), last, value);
    return error == std::errc() && end == last && !digits.empty();
  };
  const std::size_t slash = text.find('/');
  ShardNumber shard;
  const bool isOne =
      slash != std::string_view::npos && count(text.substr(0, slash), shard.number) &&
      count(text.substr(slash + 1), shard.of) && shard.number >= 1 && shard.number <= shard.of;
  return isOne ? std::optional(shard) : std::nullopt;
}

std::string checkShard(const std::string& text) {
  return parseShard(text) ? std::string() : text + " is not K/N, such as 1/4 to 4/4";
}

/// Whether this is a machine that tests what others have written.
bool isContinuousIntegration() {
  const char* value = std::getenv("CI");
  return value != nullptr && *value != '\0' && std::string_view(value) != "false" &&
         std::string_view(value) != "0";
}

std::string aloneCommand(const TestOptions& options, const std::string& test) {
  std::string command = "gk test ";
  for (const std::string& library : options.libraries) {
    command += "--library " + shellWord(library) + " ";
  }
  for (const std::string& setting : options.settings) {
    command += "--setting " + shellWord(setting) + " ";
  }
  if (options.repeat > 1) {
    command += fmt::format("--repeat {} ", options.repeat);
  }
  return command + shellWord(test);
}

ReportOptions reportOptions(const ShowOptions& show) {
  ReportOptions report;
  report.isJson = show.isJson;
  report.isVerbose = show.isVerbose;
  report.slowest = show.slowest;
  report.junit = show.junit;
  return report;
}

/// What is left of the tests for one of several machines: they take turns.
std::vector<TestCase> ofShard(std::vector<TestCase> tests, const ShardNumber& shard) {
  std::vector<TestCase> mine;
  for (std::size_t i = shard.number - 1; i < tests.size(); i += shard.of) {
    mine.push_back(std::move(tests[i]));
  }
  return mine;
}

int runTests(const TestOptions& options) {
  std::vector<TestCase> tests;
  const std::vector<std::string> here{"."};
  try {
    tests = findTests(options.paths.empty() ? here : options.paths, options.isUpdate);
  } catch (const PathError& error) {
    complain(error.what());
    return kBadInput;
  }
  if (!options.pattern.empty()) {
    std::erase_if(tests, [&options](const TestCase& test) {
      return !formats::isMeant(test.input, options.pattern);
    });
  }
  if (tests.empty()) {
    complain(options.pattern.empty()
                 ? "nothing to test was found"
                 : "nothing to test was found that is meant by " + options.pattern);
    return kBadInput;
  }
  const ShardNumber shard = parseShard(options.shard).value_or(ShardNumber());
  TestSum sum;
  sum.shard = shard.number;
  sum.shards = shard.of;
  sum.tests = tests.size();
  tests = ofShard(std::move(tests), shard);
  if (options.isListing) {
    for (const TestCase& test : tests) {
      fmt::print("{}\n", test.input);
    }
    return kSuccess;
  }
  const bool isUpdateOfNamed = isContinuousIntegration();
  if (options.isUpdate && isUpdateOfNamed &&
      std::ranges::none_of(tests, [](const TestCase& test) { return test.isNamed; })) {
    complain(
        "--update: with CI set nothing is written anew but for inputs that are named as files");
  }
  RunnerOptions runner;
  runner.settings.libraries = options.libraries;
  runner.settings.settings = options.settings;
  runner.settings.timeout = std::chrono::duration<double>(options.timeout);
  runner.jobs = options.jobs;
  runner.repeat = options.repeat;
  runner.isUpdate = options.isUpdate;
  runner.isUpdateOfNamed = isUpdateOfNamed;
  ReportOptions show = reportOptions(options.show);
  show.alone = [&options](const std::string& test) { return aloneCommand(options, test); };
  TestReport report(std::move(show));
  const auto start = std::chrono::steady_clock::now();
  auto progress = std::make_unique<ProgressLine>();
  TestRunner work(std::move(runner));
  work.run(
      tests,
      [&](TestResult result) {
        if (!result.hasPassed() || options.show.isVerbose || !result.updated.empty()) {
          progress = std::make_unique<ProgressLine>(); // What it drew makes room.
        }
        report.add(std::move(result));
      },
      [&](std::size_t done) {
        if (progress->isDue()) {
          progress->show(static_cast<double>(done) / static_cast<double>(tests.size()),
                         fmt::format("{} of {}, {} failed", done, tests.size(), report.failed()));
        }
      });
  progress.reset();
  sum.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return report.finish(sum);
}

int mergeTests(const std::vector<std::string>& files, const ShowOptions& show) {
  try {
    MergedResults merged = mergeResults(files);
    TestReport report(reportOptions(show));
    for (TestResult& result : merged.results) {
      report.add(std::move(result));
    }
    return report.finish(merged.sum);
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
    return kBadInput;
  }
}

/// Complains of outputs that cannot be written.
template <class Work> int guardedOutput(const Work& work) {
  try {
    return work();
  } catch (const formats::OutputError& error) {
    return complainOf(error);
  }
}

void addShowOptions(const Command& command, ShowOptions& options) {
  command.section("Output");
  command.flag("--json", options.isJson, "Write JSON Lines: an object for each test, then the sum");
  command.option("--junit", options.junit, "Write JUnit XML to this file as well").shows("FILE");
  command.flag("-v,--verbose", options.isVerbose,
               "Tell tests that pass as well, and by what margin each expectation holds");
  command.option("--slowest", options.slowest, "Tell the N slowest tests at the end")
      .positive()
      .shows("N");
}

void addMergeCommand(const Command& test) {
  const Command command = test.titled("Shards").subcommand(
      "merge", "Join what --json has written for the shards of the same tests");
  struct Options {
    std::vector<std::string> files;
    ShowOptions show;
  };
  auto options = std::make_shared<Options>();
  command.option("FILE", options->files, "What each shard has written, in any order")
      .required()
      .shows("");
  addShowOptions(command, options->show);
  command.does([options] {
    return guardedOutput([&] { return mergeTests(options->files, options->show); });
  });
}

void addSelectionOptions(const Command& command, TestOptions& options) {
  command.section("Selection");
  command
      .option("-k", options.pattern,
              "Only tests with such names: a part of one, or a pattern with * and ?")
      .shows("PATTERN");
  command.flag("--list", options.isListing, "List the tests, and run none");
  command
      .option("--shard", options.shard,
              "Only the K-th of N parts, for several machines; gk test merge joins the results")
      .checked(checkShard)
      .shows("K/N");
}

void addRunnerOptions(const Command& command, TestOptions& options) {
  command.section("Run");
  command
      .option("-j,--jobs", options.jobs, "Run N tests at a time; as many as there are processors")
      .within(1, 1024)
      .shows("N");
  command.option("--timeout", options.timeout, "Seconds of wall time after which a run has failed")
      .positive()
      .within(0.0, 1e6)
      .shows("SECONDS")
      .showsDefault();
  command.option("--repeat", options.repeat, "Run each test N times; fails when two runs differ")
      .within(1, 1'000'000)
      .shows("N");
  command.flag(
      "--update", options.isUpdate,
      "Write NAME.expected.jsonl anew; with CI set only of inputs that are named as files");
  command.section("Modules");
  addLibraryOptions(command, options.libraries, options.settings);
}

} // namespace

void addTestCommand(const Command& program) {
  const Command command =
      program.subcommand("test", "Run scenarios and recordings and check what is expected of them");
  auto options = std::make_shared<TestOptions>();
  command
      .option("PATH", options->paths,
              "Inputs, and folders of inputs with expectations in them or beside them; the present "
              "folder when absent")
      .shows("");
  addSelectionOptions(command, *options);
  addRunnerOptions(command, *options);
  addShowOptions(command, options->show);
  addMergeCommand(command);
  command.footer(
      "Examples:\n"
      "  gk test                            all tests below this folder\n"
      "  gk test -k fall tests              those with fall in their names\n"
      "  gk test --update walk.csv          keep what walk.csv gives as what it has to\n"
      "  gk test --shard 1/4 --json tests   the first quarter, for gk test merge\n"
      "\nExit codes: 0 all have passed, 1 some have failed, 2 wrong input, or nothing to "
      "test\n");
  command.does([options] { return guardedOutput([&] { return runTests(*options); }); });
}

} // namespace gk::app
