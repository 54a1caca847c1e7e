#include "app/options/Command.h"
#include "app/recordings/RecordingActions.h"
#include "app/terminal/ProgressLine.h"
#include "devices/DeviceKeys.h"
#include "formats/mcap/Recover.h"
#include "formats/mcap/Verify.h"
#include "formats/recording/OpenRecording.h"
#include "formats/recording/RunConvert.h"
#include "formats/text/InputError.h"
#include "runtime/output/Outlet.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>

namespace gk::app {

namespace {

namespace mcap = formats::mcap;

bool isSameFile(const std::string& one, const std::string& other) {
  std::error_code ignored;
  return std::filesystem::equivalent(one, other, ignored);
}

/// Raises `WriteError` for an output that would destroy the input.
void expectOther(const std::string& file, const std::string& out) {
  if (isSameFile(file, out)) {
    throw mcap::WriteError("cannot write " + out + ": it is the file being read");
  }
}

/// A new MCAP file that appears under its name only when it is whole.
class NewFile {
public:
  explicit NewFile(const std::string& path)
      : fPath(path), fTemporary(path + ".part"), fSink(fTemporary) {}
  ~NewFile() {
    std::error_code ignored;
    std::filesystem::remove(fTemporary, ignored);
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  mcap::Sink& sink() noexcept { return fSink; }
  const std::string& temporary() const noexcept { return fTemporary; }

  void commit() {
    std::error_code error;
    std::filesystem::rename(fTemporary, fPath, error);
    if (error) {
      throw mcap::WriteError("cannot write " + fPath + ": " + error.message());
    }
  }

private:
  const std::string fPath;
  const std::string fTemporary;
  mcap::FileSink fSink;
};

void convertText(const std::string& file, const std::string& out, bool isTable,
                 const formats::ConvertProgress& progress) {
  const auto open = [&file] { return formats::openRecording(file, devices::keyTypeOf); };
  runtime::FileOutlet outlet(out);
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
    throw formats::InputError(file, 1, "is damaged; gk recording recover saves what can be read");
  }
}

} // namespace

int recoverRecording(const std::string& file, const std::string& out) {
  expectOther(file, out);
  mcap::FileSource source(file);
  NewFile result(out);
  mcap::Recovered recovered;
  mcap::Verdict verdict;
  {
    ProgressLine line;
    recovered = mcap::recover(source, result.sink(), mcap::Compression::Zstd,
                              [&line](double progress) { line.show(progress); });
    mcap::FileSource written(result.temporary());
    verdict = mcap::verify(written, [&line](double progress) { line.show(progress); });
  }
  if (verdict.problems.count() > 0 || verdict.statistics.messageCount != recovered.messages) {
    throw mcap::WriteError("cannot write " + out + ": what was written reads differently");
  }
  result.commit();
  for (const mcap::Problem& problem : recovered.problems.kept()) {
    fmt::print("{}: byte {}: {}\n", file, problem.offset, problem.text);
  }
  fmt::print(
      "{}: {} messages, {} metadata records, {} attachments saved; {} problems left behind\n", out,
      recovered.messages, recovered.metadata, recovered.attachments, recovered.problems.count());
  return kSuccess;
}

int convertRecording(const std::string& file, const std::string& out,
                     mcap::Compression compression) {
  expectOther(file, out);
  ProgressLine line;
  const auto progress = [&line](double done) { line.show(done); };
  if (out.ends_with(".mcap") && file.ends_with(".mcap")) {
    NewFile result(out);
    recompress(file, result.sink(), compression, progress);
    result.commit();
  } else if (out.ends_with(".mcap")) {
    const auto recording = formats::openRecording(file, devices::keyTypeOf);
    NewFile result(out);
    mcap::StringMap about{{"version", "gksensors " GK_VERSION},
                          {"source", std::filesystem::path(file).filename()}};
    formats::convertToMcap(*recording, result.sink(), compression, std::move(about), progress);
    result.commit();
  } else if (out.ends_with(".csv") || out.ends_with(".jsonl")) {
    convertText(file, out, out.ends_with(".csv"), progress);
  } else {
    throw mcap::WriteError("cannot write " + out +
                           ": its name does not end in .mcap, .csv or .jsonl");
  }
  return kSuccess;
}

} // namespace gk::app
