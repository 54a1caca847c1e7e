#include "app/options/Command.h"
#include "app/recordings/RecordingActions.h"
#include "app/terminal/ProgressLine.h"
#include "devices/DeviceKeys.h"
#include "formats/mcap/Recover.h"
#include "formats/mcap/Verify.h"
#include "formats/recording/OpenRecording.h"
#include "formats/recording/RunConvert.h"
#include "formats/run/RunCheck.h"
#include "formats/text/InputError.h"
#include "runtime/output/Outlet.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>

namespace gk::app {

namespace {

namespace mcap = formats::mcap;

void convertText(const std::string& file, const std::string& out, bool isTable,
                 const formats::ConvertProgress& progress) {
  const auto open = [&file] { return formats::openRecording(file, devices::keyTypeOf); };
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

/// Every message and all else of a recording into one that is compressed in another way. Raises
/// `InputError` for a damaged one.
void recompress(const std::string& file, mcap::Sink& sink, mcap::Compression compression,
                const formats::ConvertProgress& progress) {
  mcap::FileSource source(file);
  const mcap::Recovered copied = mcap::recover(source, sink, compression, progress);
  if (copied.isCut || copied.problems.count() > 0) {
    throw formats::InputError(file, 0, "is damaged; gk recording recover saves what can be read");
  }
}

} // namespace

int recoverRecording(const std::string& file, const std::string& out, bool isOverwriting) {
  mcap::FileSource source(file);
  mcap::FileSink result(out, {{file}, !isOverwriting});
  mcap::Recovered recovered;
  mcap::Verdict verdict;
  mcap::Problems run;
  {
    constexpr double third = 1.0 / 3;
    ProgressLine line;
    const auto part = [&line](double begin) {
      return [&line, begin](double progress) { line.show(begin + third * progress); };
    };
    recovered = mcap::recover(source, result, mcap::Compression::Zstd, part(0));
    mcap::FileSource written(result.file().place());
    verdict = mcap::verify(written, part(third));
    run = formats::checkRun(written, part(2 * third));
  }
  if (verdict.problems.count() > 0 || verdict.statistics.messageCount != recovered.messages) {
    throw formats::OutputError(formats::OutputError::Kind::Write,
                               "cannot write " + out + ": what was written reads differently");
  }
  for (const mcap::Problem& problem : recovered.problems.kept()) {
    fmt::print("{}: byte {}: {}\n", file, problem.offset, problem.text);
  }
  if (recovered.messages + recovered.metadata + recovered.attachments == 0) {
    fmt::print(stderr, "gk: {}: nothing can be read of it, so nothing was saved\n", file);
    return kFailure;
  }
  result.file().appear();
  for (const mcap::Problem& problem : run.kept()) {
    fmt::print("{}: byte {}: {}\n", out, problem.offset, problem.text);
  }
  fmt::print(
      "{}: {} messages, {} metadata records, {} attachments saved; {} problems left behind\n", out,
      recovered.messages, recovered.metadata, recovered.attachments, recovered.problems.count());
  if (run.count() > 0) {
    // Saved as it is, but not what somebody who recovers a run hopes for.
    fmt::print(stderr,
               "gk: {}: {} pieces of the run in it cannot be read: it cannot be repeated "
               "exactly\n",
               out, run.count());
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
  } else if (out.ends_with(".mcap")) {
    const auto recording = formats::openRecording(file, devices::keyTypeOf);
    mcap::FileSink result(out, options);
    mcap::StringMap about{{"version", "gksensors " GK_VERSION},
                          {"source", std::filesystem::path(file).filename()}};
    formats::convertToMcap(*recording, result, compression, std::move(about), progress);
    result.file().appear();
  } else if (out.ends_with(".csv") || out.ends_with(".jsonl")) {
    convertText(file, out, out.ends_with(".csv"), progress);
  } else {
    throw formats::OutputError(formats::OutputError::Kind::Name,
                               "cannot write " + out +
                                   ": its name does not end in .mcap, .csv or .jsonl");
  }
  return kSuccess;
}

} // namespace gk::app
