#include "app/recordings/DiffInput.h"
#include "app/recordings/DiffText.h"
#include "app/recordings/RecordingCommands.h"
#include "app/session/Complaints.h"
#include "app/session/SessionOptions.h"
#include "formats/compare/ComparisonJson.h"
#include "formats/compare/ReadReported.h"
#include "formats/files/OutputError.h"
#include "formats/text/InputError.h"
#include "formats/text/NamePattern.h"
#include "formats/text/NearestNames.h"
#include "gk/GKError.h"
#include "messages/json/JsonWriter.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"
#include "runtime/output/Outlet.h"
#include "runtime/report/DiffPage.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace gk::app {

namespace {

struct DiffOptions {
  std::vector<std::string> files;
  bool isEach = false;
  DiffRunOptions run;
  std::string only;
  std::vector<std::string> ignored;
  double timeTolerance = 0;
  double valueTolerance = 0;
  bool isStat = false;
  bool isJson = false;
  std::string html;
};

/// Two runs and how they differ. Stays where it is.
class DiffWork {
public:
  explicit DiffWork(const DiffOptions& options) : fOptions(options) {
    if (!options.only.empty()) {
      fChoice.kinds = formats::LineKinds::parse(options.only);
    }
    fChoice.ignored = options.ignored;
  }

  /// A recorded run against what the present library makes of it.
  void compareWithItself(const std::string& file) {
    if (diffInputOf(file) != DiffInput::Run) {
      throw formats::InputError(file, 0,
                                "is no recorded run, which could be compared with what the library "
                                "makes of it: name a second file");
    }
    fA.from = fB.from = formats::recordedFrom(file);
    readReported(file, DiffInput::Run, fA);
    runReported(file, fOptions.run, fB);
    xCompare();
  }

  void compare(const std::string& a, const std::string& b) {
    const DiffInput kindA = diffInputOf(a);
    const DiffInput kindB = diffInputOf(b);
    const bool isRun = kindA == DiffInput::Playable || kindB == DiffInput::Playable;
    const DiffRunOptions& run = fOptions.run;
    if (!isRun && run.libraries.size() + run.subscribe.size() + run.sample.size() > 0) {
      throw messages::FormatError("--library, --subscribe and --sample are for what has to be run: "
                                  "both files tell already what was reported");
    }
    fA.from = fB.from = std::max(xFrom(a, kindA), xFrom(b, kindB));
    xRead(a, kindA, fA);
    xRead(b, kindB, fB);
    xCompare();
  }

  const formats::Comparison& result() const { return *fResult; }

  /// Says what may be wrong with the inputs and the options.
  void warn() const {
    for (const formats::ReportedRun* run : {&fA, &fB}) {
      for (const std::string& warning : run->warnings) {
        complain(warning);
      }
    }
    for (const std::string& name : fOptions.ignored) {
      const auto isIt = [&name](const std::string& ignored) {
        return ignored == name || (formats::isPattern(name) && formats::isMeant(ignored, name));
      };
      if (!std::ranges::any_of(fA.ignored(), isIt) && !std::ranges::any_of(fB.ignored(), isIt)) {
        std::vector<std::string> names;
        for (const formats::Comparison::Name* known : fResult->names()) {
          names.push_back(known->name);
        }
        complain("--ignore: nothing is called " + name +
                 formats::didYouMean(formats::nearestNames(name, names)));
      }
    }
  }

private:
  /// Of a recording that was cut the beginning can only be run.
  static GK::GKMicros xFrom(const std::string& file, DiffInput kind) {
    return kind == DiffInput::Run || kind == DiffInput::Stream ? formats::recordedFrom(file) : 0;
  }

  void xRead(const std::string& file, DiffInput kind, formats::ReportedRun& run) const {
    if (kind == DiffInput::Playable) {
      runReported(file, fOptions.run, run);
    } else {
      readReported(file, kind, run);
    }
  }

  void xCompare() {
    const formats::CompareTolerance tolerance{
        fOptions.valueTolerance, messages::toMicros(fOptions.timeTolerance).value_or(0)};
    fResult.emplace(fA, fB, tolerance);
  }

  const DiffOptions& fOptions;
  formats::ReportedChoice fChoice;
  formats::ValuePool fPool;
  formats::ReportedRun fA{fPool, fChoice};
  formats::ReportedRun fB{fPool, fChoice};
  std::optional<formats::Comparison> fResult;
};

void printJson(const formats::Comparison& result, std::string_view file) {
  formats::writeComparison(result, file, [](std::string_view text) { fmt::print("{}", text); });
}

void printText(const formats::Comparison& result, bool isStat) {
  if (!isStat) {
    printDifferences(result);
  }
  fmt::print("{}", diffNamesText(result, isStat));
  fmt::print("{}", diffVerdictText(result));
}

/// Does something that reads files. Complains where one is malformed; returns the exit code.
template <class Work> int diffGuarded(const Work& work) {
  try {
    return work();
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
  } catch (const messages::FormatError& error) {
    complain(error.what());
  } catch (const GK::GKError& error) {
    complain(error.getDescription());
  } catch (const formats::OutputError& error) {
    return complainOf(error);
  }
  return kBadInput;
}

int diff(const DiffOptions& options) {
  return diffGuarded([&] {
    std::optional<runtime::FileOutlet> page;
    if (!options.html.empty()) {
      std::vector<std::string> inputs = options.files;
      inputs.insert(inputs.end(), options.run.libraries.begin(), options.run.libraries.end());
      page.emplace(options.html, formats::OutputFileOptions{std::move(inputs)});
    }
    DiffWork work(options);
    if (options.files.size() == 1) {
      work.compareWithItself(options.files[0]);
    } else {
      work.compare(options.files[0], options.files[1]);
    }
    const formats::Comparison& result = work.result();
    work.warn();
    if (options.isJson) {
      printJson(result, {});
    } else {
      fmt::print("{}\n", diffFactsText(result));
      printText(result, options.isStat);
    }
    if (page) {
      page->write(runtime::diffPage(result, "gksensors " GK_VERSION));
      page->commit();
    }
    return result.isSame() ? kSuccess : kFailure;
  });
}

/// What a process says to the one that has started it.
struct EachMessage {
  formats::DifferenceCounts counts;
  GK::GKMicros first = 0;
};

/// Compares one file of many, prints what there is to say, and tells the result.
int diffOneOfMany(const DiffOptions& options, const std::string& file, int answer) {
  return diffGuarded([&] {
    DiffWork work(options);
    work.compareWithItself(file);
    const formats::Comparison& result = work.result();
    work.warn();
    if (options.isJson) {
      printJson(result, file);
    } else if (!result.isSame() || options.isStat) {
      fmt::print("== {}\n", file);
      printText(result, options.isStat);
      fmt::print("\n");
    }
    const EachMessage message{result.counts(), firstDifference(result).value_or(0)};
    if (write(answer, &message, sizeof(message)) != sizeof(message)) {
      return kFailure;
    }
    return result.isSame() ? kSuccess : kFailure;
  });
}

/// In a process of its own: a library that crashes ends one comparison, not all.
DiffOfFile diffApart(const DiffOptions& options, const std::string& file) {
  DiffOfFile result{file, DiffOfFile::State::Malformed, {}, std::nullopt};
  std::array<int, 2> pipes{};
  std::fflush(stdout);
  if (pipe(pipes.data()) != 0) {
    complain(std::string("no process can be started: ") + std::strerror(errno));
    return result;
  }
  const pid_t process = fork();
  if (process == 0) {
    close(pipes[0]);
    int code = kFailure;
    try {
      code = diffOneOfMany(options, file, pipes[1]);
    } catch (const std::exception& error) {
      complain(error.what());
    }
    std::fflush(stdout);
    _exit(code);
  }
  close(pipes[1]);
  EachMessage message;
  const bool isTold = process > 0 && read(pipes[0], &message, sizeof(message)) == sizeof(message);
  close(pipes[0]);
  int status = 0;
  if (process < 0 || waitpid(process, &status, 0) != process) {
    complain(std::string("no process can be started: ") + std::strerror(errno));
    return result;
  }
  if (WIFSIGNALED(status)) {
    result.state = DiffOfFile::State::Crashed;
    fmt::print(stderr, "{}: ended by signal {} ({}) while it was compared\n", file,
               WTERMSIG(status), strsignal(WTERMSIG(status)));
  } else if (isTold) {
    result.state = DiffOfFile::State::Compared;
    result.counts = message.counts;
    if (message.counts.sum() > 0) {
      result.first = message.first;
    }
  }
  return result;
}

int diffEach(const DiffOptions& options) {
  std::vector<DiffOfFile> results;
  int code = kSuccess;
  for (const std::string& file : options.files) {
    results.push_back(diffApart(options, file));
    const DiffOfFile& result = results.back();
    if (result.state == DiffOfFile::State::Malformed) {
      code = kBadInput;
    } else if (result.state == DiffOfFile::State::Crashed || result.counts.sum() > 0) {
      code = std::max<int>(code, kFailure);
    }
    if (options.isJson && result.state != DiffOfFile::State::Compared) {
      std::string line;
      messages::JsonWriter json(line);
      const bool isCrash = result.state == DiffOfFile::State::Crashed;
      json.beginObject().key("file").text(file).key("error");
      json.text(isCrash ? "crashed" : "malformed").endObject();
      fmt::print("{}\n", line);
    }
  }
  if (!options.isJson) {
    fmt::print("{}", diffFilesText(results));
  }
  return code;
}

int runDiff(const DiffOptions& options) {
  if (options.isEach) {
    if (!options.html.empty()) {
      complain("--html: is about one comparison, and does not go with --each");
      return kBadInput;
    }
    return diffEach(options);
  }
  if (options.files.size() > 2) {
    complain("two files are compared, or one with what the library makes of it; --each takes many");
    return kBadInput;
  }
  return diff(options);
}

} // namespace

void addDiffCommand(const Command& program) {
  const Command command = program.subcommand(
      "diff", "Compare what two runs reported, or a recording with what the library makes of it");
  auto options = std::make_shared<DiffOptions>();
  command
      .option("FILE", options->files,
              "Recordings (.mcap), output of gk replay --out (.jsonl), and what is run first: "
              "scenarios (.jsonl) and tables (.csv). One recording alone is compared with what the "
              "present library makes of it")
      .required()
      .shows("");
  command.flag("--each", options->isEach,
               "Compare each recording with what the library makes of it, and show a table");
  command.section("What counts");
  command.option("--only", options->only, "Compare these kinds of lines instead of event,micro")
      .checked(checkKinds)
      .shows("KIND,KIND");
  command
      .option("--ignore", options->ignored,
              "Leave out what has this name, or fits a pattern with * and ?")
      .separatedBy(',')
      .shows("NAME,NAME")
      .onceEach();
  command
      .option("--tolerance-time", options->timeTolerance,
              "Times that are so far apart, or nearer, are the same")
      .within(0.0, messages::kMaxSeconds)
      .shows("SECONDS");
  command
      .option("--tolerance-value", options->valueTolerance,
              "Floats that are so far apart, or nearer, are the same")
      .within(0.0, 1e38)
      .shows("NUMBER");
  command.section("What is run");
  command
      .option("--library", options->run.libraries, "Run with this module library instead of ours")
      .shows("FILE")
      .onceEach();
  command
      .option("--subscribe", options->run.subscribe,
              "Subscribe to this extractor at the start, where no recorded run is repeated")
      .shows("MODULE")
      .onceEach();
  command
      .option("--sample", options->run.sample,
              "With --only sample: report the values of these keys after every tick")
      .separatedBy(',')
      .shows("KEY,KEY")
      .onceEach();
  command.section("Output");
  command.flag("--stat", options->isStat, "Show only how many differences each name has");
  command.flag("--json", options->isJson, "Write one JSON object");
  command
      .option("--html", options->html,
              "Write a page with both runs one above the other to this file")
      .shows("FILE.html");
  command.footer("Exit codes: 0 the same, 1 different, 2 bad input\n\n"
                 "Examples:\n"
                 "  gk diff night.mcap --library ./libmine.so\n"
                 "  gk diff --each night-*.mcap --library ./libmine.so\n"
                 "  gk diff before.jsonl after.jsonl --tolerance-time 0.02\n");
  command.does([options] { return runDiff(*options); });
}

} // namespace gk::app
