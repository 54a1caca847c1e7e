#include "app/options/Command.h"
#include "app/recordings/RecordingActions.h"
#include "app/terminal/ProgressLine.h"
#include "formats/mcap/Recover.h"
#include "formats/mcap/Verify.h"
#include "formats/recording/OpenRecording.h"
#include "formats/recording/RunConvert.h"
#include "formats/recording/ShortenedRecording.h"
#include "formats/run/RunCheck.h"
#include "formats/run/RunCut.h"
#include "formats/run/RunLog.h"
#include "formats/text/InputError.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/Numbers.h"
#include "runtime/output/Outlet.h"

#include <fmt/format.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace gk::app {

namespace {

namespace mcap = formats::mcap;

using Open = std::function<std::unique_ptr<formats::Recording>()>;

/// What opens a file, up to a time where one is given.
Open opener(const std::string& file, std::optional<double> to = std::nullopt) {
  return [file, to]() -> std::unique_ptr<formats::Recording> {
    auto recording = formats::openRecording(file, messages::keyTypeOf);
    if (const auto end = to ? messages::toMicros(*to) : std::nullopt) {
      return std::make_unique<formats::ShortenedRecording>(std::move(recording), *end);
    }
    return recording;
  };
}

void convertText(const std::string& file, const std::string& out, const Open& open,
                 const formats::ConvertProgress& progress) {
  const bool isTable = out.ends_with(".csv");
  runtime::FileOutlet outlet(out, {{file}});
  const auto write = [&outlet](std::string_view text) { outlet.write(text); };
  formats::LeftOut left;
  if (isTable) {
    left = formats::convertToCsv(open, write, progress);
  } else {
    formats::convertToScenario(*open(), write, progress);
  }
  outlet.commit();
  if (left.actions + left.values > 0) {
    fmt::print(stderr, "gk: left out of the table: {} actions, {} values that are no numbers\n",
               left.actions, left.values);
  }
}

void convertRun(const std::string& file, const std::string& out, const Open& open,
                mcap::Compression compression, const formats::OutputFileOptions& options,
                const formats::ConvertProgress& progress) {
  const auto recording = open();
  mcap::FileSink result(out, options);
  mcap::StringMap about{{"version", "gksensors " GK_VERSION},
                        {"source", std::filesystem::path(file).filename()}};
  formats::convertToMcap(*recording, result, compression, std::move(about), progress);
  result.file().appear();
}

formats::InputError damaged(const std::string& file) {
  return {file, 0, "is damaged; gk recording recover saves what can be read"};
}

/// Into a file of the kind that its name tells.
void convertInput(const std::string& file, const std::string& out, const Open& open,
                  mcap::Compression compression, const formats::OutputFileOptions& options,
                  const formats::ConvertProgress& progress) {
  if (out.ends_with(".mcap")) {
    convertRun(file, out, open, compression, options, progress);
  } else if (out.ends_with(".csv") || out.ends_with(".jsonl")) {
    convertText(file, out, open, progress);
  } else {
    throw formats::OutputError(formats::OutputError::Kind::Name,
                               "cannot write " + out +
                                   ": its name does not end in .mcap, .csv or .jsonl");
  }
}

/// Every message and all else of a recording into one that is compressed in another way. Raises
/// `InputError` for a damaged one.
void recompress(const std::string& file, mcap::Sink& sink, mcap::Compression compression,
                const formats::ConvertProgress& progress) {
  mcap::FileSource source(file);
  const mcap::Recovered copied =
      mcap::recover(source, sink, compression, progress, formats::kRunTopic);
  if (copied.isCut || copied.problems.count() > 0) {
    throw damaged(file);
  }
}

} // namespace

int recoverRecording(const std::string& file, const std::string& out, bool isOverwriting) {
  mcap::FileSource source(file);
  mcap::FileSink result(out, {{file}, !isOverwriting});
  formats::CutResult recovered;
  mcap::Verdict verdict;
  mcap::Problems run;
  {
    constexpr double third = 1.0 / 3;
    ProgressLine line;
    const auto part = [&line](double begin) {
      return [&line, begin](double progress) { line.show(begin + third * progress); };
    };
    recovered = formats::cutRun(source, result, {}, mcap::Compression::Zstd, part(0));
    mcap::FileSource written(result.file().place());
    verdict = mcap::verify(written, part(third));
    run = formats::checkRun(written, part(2 * third));
  }
  if (verdict.problems.count() > 0 || verdict.statistics.messageCount != recovered.messages) {
    throw formats::OutputError(formats::OutputError::Kind::Write,
                               "cannot write " + out + ": what was written reads differently");
  }
  for (const mcap::Problems* problems : {&recovered.problems, &recovered.runProblems}) {
    for (const mcap::Problem& problem : problems->kept()) {
      fmt::print("{}: byte {}: {}\n", file, problem.offset, problem.text);
    }
  }
  if (recovered.messages + recovered.metadata + recovered.attachments == 0) {
    fmt::print(stderr, "gk: {}: nothing can be read of it, so nothing was saved\n", file);
    return kFailure;
  }
  result.file().appear();
  fmt::print("{}: {} messages, {} metadata records, {} attachments saved; {} problems left "
             "behind\n",
             out, recovered.messages, recovered.metadata, recovered.attachments,
             recovered.problems.count() + recovered.runProblems.count());
  if (const std::uint64_t lost = recovered.runProblems.count() + run.count(); lost > 0) {
    // Saved as it is, but not what somebody who recovers a run hopes for.
    fmt::print(stderr,
               "gk: {}: {} pieces of the run in it cannot be read: it cannot be repeated "
               "exactly\n",
               out, lost);
    return kFailure;
  }
  return kSuccess;
}

int convertRecording(const std::string& file, const std::string& out, mcap::Compression compression,
                     bool isOverwriting) {
  ProgressLine line;
  const auto progress = [&line](double done) { line.show(done); };
  const formats::OutputFileOptions options{{file}, !isOverwriting};
  if (out.ends_with(".mcap") && file.ends_with(".mcap")) {
    mcap::FileSink result(out, options);
    recompress(file, result, compression, progress);
    result.file().appear();
  } else {
    convertInput(file, out, opener(file), compression, options, progress);
  }
  return kSuccess;
}

int cutRecording(const std::string& file, const std::string& out, const RecordingPart& part,
                 bool isOverwriting) {
  if (part.to && *part.to < part.from) {
    fmt::print(stderr, "gk: --to {} comes before --from {}\n", *part.to, part.from);
    return kBadInput;
  }
  ProgressLine line;
  const auto progress = [&line](double done) { line.show(done); };
  const formats::OutputFileOptions options{{file}, !isOverwriting};
  if (!file.ends_with(".mcap") || !out.ends_with(".mcap")) {
    if (part.from > 0) {
      fmt::print(stderr, "gk: --from is for .mcap files, which tell from where on they are to be "
                         "shown: what comes before it is needed in any case\n");
      return kBadInput;
    }
    convertInput(file, out, opener(file, part.to), mcap::Compression::Zstd, options, progress);
    return kSuccess;
  }
  formats::CutRange range;
  range.from = messages::toMicros(part.from).value_or(0);
  if (part.to) {
    range.to = messages::toMicros(*part.to).value_or(range.to);
  }
  mcap::FileSource source(file);
  mcap::FileSink result(out, options);
  const formats::CutResult cut =
      formats::cutRun(source, result, range, mcap::Compression::Zstd, progress);
  if (cut.problems.count() + cut.runProblems.count() > 0) {
    throw damaged(file);
  }
  if (cut.turns + cut.messages == 0) {
    throw formats::InputError(file, 0, "nothing of it lies in that part");
  }
  result.file().appear();
  fmt::print("{}: {} turns of the run, {} messages\n", out, cut.turns, cut.messages);
  return kSuccess;
}

} // namespace gk::app
