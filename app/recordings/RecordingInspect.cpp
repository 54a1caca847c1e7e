#include "app/options/Command.h"
#include "app/recordings/RecordingActions.h"
#include "app/terminal/ProgressLine.h"
#include "formats/files/OutputError.h"
#include "formats/lines/ScenarioText.h"
#include "formats/mcap/Reader.h"
#include "formats/mcap/Verify.h"
#include "formats/run/RunBlocks.h"
#include "formats/run/RunCheck.h"
#include "formats/text/InputError.h"
#include "formats/text/Printable.h"
#include "messages/json/JsonText.h"
#include "messages/json/JsonValue.h"
#include "messages/text/WallTime.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace gk::app {

namespace {

namespace mcap = formats::mcap;

constexpr double kNanosPerSecond = 1e9;
constexpr double kMega = 1e6;

double secondsOf(std::uint64_t nanos) {
  return static_cast<double>(nanos) / kNanosPerSecond;
}

std::string wallText(std::uint64_t nanos) {
  return messages::wallTimeText(static_cast<std::int64_t>(nanos / 1000));
}

/// What a file says about itself, told from its beginning to its end.
class Summary {
public:
  explicit Summary(const std::string& file) : fFile(file), fSource(file), fReader(fSource) {}

  void read() {
    ProgressLine line;
    while (const std::optional<mcap::Item> item = fReader.next()) {
      if (const auto* message = std::get_if<mcap::Message>(&*item)) {
        xCount(*message);
      } else if (const auto* metadata = std::get_if<mcap::Metadata>(&*item)) {
        fMetadata.push_back(*metadata);
      } else {
        ++fAttachments;
      }
      line.show(fReader.progress());
    }
  }

  void print() const {
    fmt::print("{}: {:.3f} MB, {}\n", fFile, static_cast<double>(fSource.size()) / kMega,
               fReader.isCut() ? "cut off" : "whole");
    const auto rows = xRows();
    // The widest counts, so that the second column stays one.
    std::size_t widest = 0;
    for (const auto& [name, text] : rows) {
      widest = std::max(widest, name.size());
    }
    for (const auto& [name, text] : rows) {
      fmt::print("  {:<{}}  {}\n", formats::printable(name), widest, formats::printable(text));
    }
    xPrintChannels();
    for (const mcap::Problems* problems : {&fReader.problems(), &fRunProblems}) {
      for (const mcap::Problem& problem : problems->kept()) {
        fmt::print("problem at byte {}: {}\n", problem.offset, problem.text);
      }
    }
  }

private:
  using Rows = std::vector<std::pair<std::string, std::string>>;

  Rows xRows() const {
    Rows rows{{"written by", fReader.library()}};
    const auto add = [&rows](const char* name, std::uint64_t count) {
      rows.emplace_back(name, std::to_string(count));
    };
    if (fMessages > 0) {
      rows.emplace_back("from", wallText(fStart));
      rows.emplace_back("length", fmt::format("{:.3f} s", secondsOf(fEnd - fStart)));
    }
    add("chunks", fReader.chunkCount());
    add("attachments", fAttachments);
    for (const mcap::Metadata& metadata : fMetadata) {
      for (const auto& [name, value] : metadata.values) {
        rows.emplace_back(metadata.name + "." + name, value);
      }
    }
    if (fTurns > 0) {
      add("turns", fTurns);
      add("actions", fActions);
      add("lost blocks", fLost);
      add("overlaps", fOverlaps);
    }
    add("messages", fMessages);
    return rows;
  }

  void xPrintChannels() const {
    std::size_t widest = 0;
    for (const auto& [id, count] : fCounts) {
      widest = std::max(widest, fReader.channel(id).topic.size());
    }
    for (const auto& [id, count] : fCounts) {
      const mcap::Channel& channel = fReader.channel(id);
      const mcap::Schema* schema = fReader.schema(channel.schemaId);
      fmt::print("    {:<{}} {:>9}  {:<8} {}\n", formats::printable(channel.topic), widest, count,
                 channel.messageEncoding, schema != nullptr ? schema->name : "");
    }
  }

  void xCount(const mcap::Message& message) {
    fStart = fMessages == 0 ? message.logTime : std::min(fStart, message.logTime);
    fEnd = fMessages == 0 ? message.logTime : std::max(fEnd, message.logTime);
    ++fMessages;
    ++fCounts[message.channelId];
    if (fRun.isBlock(message)) {
      fRun.begin(message);
      xCountRun();
    }
  }

  void xCountRun() {
    while (const std::optional<formats::RunEntry> entry = fRun.next()) {
      fTurns += std::holds_alternative<formats::RunTurn>(*entry) ? 1 : 0;
      fActions += std::holds_alternative<formats::RunAction>(*entry) ? 1 : 0;
      fOverlaps += std::holds_alternative<formats::RunOverlap>(*entry) ? 1 : 0;
      if (const auto* lost = std::get_if<formats::RunLost>(&*entry)) {
        fLost += lost->blocks;
      }
    }
  }

  const std::string fFile;
  mcap::FileSource fSource;
  mcap::Reader fReader;
  mcap::Problems fRunProblems;
  formats::RunBlocks fRun{fReader, fRunProblems};
  std::vector<mcap::Metadata> fMetadata;
  std::uint64_t fAttachments = 0;
  std::uint64_t fMessages = 0;
  std::uint64_t fStart = 0;
  std::uint64_t fEnd = 0;
  std::map<std::uint16_t, std::uint64_t> fCounts;
  std::uint64_t fTurns = 0;
  std::uint64_t fActions = 0;
  std::uint64_t fLost = 0;
  std::uint64_t fOverlaps = 0;
};

/// Makes the entries of a run log JSON.
class EntryText {
public:
  EntryText(std::string& out, const formats::RunBlocks& run) : fOut(out), fRun(run) {}

  void operator()(const formats::RunTurn& turn) {
    fOut += fmt::format(R"({{"turn":{},"t":)", turn.task);
    fOut += fmt::format("{:.6f}", static_cast<double>(turn.time) / kMega);
    fOut += '}';
    fTime = turn.time;
  }
  void operator()(const formats::RunWall& wall) {
    fOut += fmt::format(R"({{"wall":{}}})", wall.offset);
  }
  void operator()(const formats::RunTask& task) {
    fOut += fmt::format(R"({{"task":{},"method":)", task.task);
    messages::appendJsonString(fOut, task.module + "." + task.method);
    fOut += '}';
  }
  void operator()(const formats::RunKey& key) {
    fOut += fmt::format(R"({{"key":{},"name":)", key.index);
    messages::appendJsonString(fOut, key.name);
    fOut += '}';
  }
  void operator()(const formats::RunValues& values) {
    formats::SetAction set;
    for (const formats::RunValue& value : values.values) {
      set.values.emplace_back(*fRun.key(value.key), values.value(value));
    }
    formats::appendScenarioLine(fOut, std::nullopt, set);
  }
  void operator()(const formats::RunAction& action) {
    formats::appendScenarioLine(fOut, fTime, action.action);
  }
  void operator()(const formats::RunStart& start) {
    fOut += fmt::format(R"({{"start":true,"whole":{},"continued":{}}})", start.isWhole,
                        start.isContinued);
  }
  void operator()(const formats::RunLost& lost) {
    fOut += fmt::format(R"({{"lost":{}}})", lost.blocks);
  }
  void operator()(const formats::RunOverlap&) { fOut += R"({"overlap":true})"; }

private:
  std::string& fOut;
  const formats::RunBlocks& fRun;
  GK::GKMicros fTime = 0;
};

/// A message as JSON: itself where it is, a run log's entries, otherwise its length.
void appendMessageText(std::string& out, const mcap::Reader& reader, const mcap::Message& message,
                       formats::RunBlocks& run) {
  if (reader.channel(message.channelId).messageEncoding == "json") {
    out += message.data;
  } else if (run.isBlock(message)) {
    run.begin(message);
    EntryText text(out, run);
    const char* separator = "[";
    while (const std::optional<formats::RunEntry> entry = run.next()) {
      out += separator;
      std::visit(text, *entry);
      separator = ",";
    }
    out += ']';
  } else {
    out += fmt::format(R"({{"bytes":{}}})", message.data.size());
  }
}

} // namespace

int showRecording(const std::string& file) {
  Summary summary(file);
  summary.read();
  summary.print();
  return kSuccess;
}

int verifyRecording(const std::string& file) {
  mcap::FileSource source(file);
  mcap::Verdict verdict;
  mcap::Problems run;
  {
    constexpr double half = 0.5;
    ProgressLine line;
    verdict = mcap::verify(source, [&line](double progress) { line.show(half * progress); });
    run =
        formats::checkRun(source, [&line](double progress) { line.show(half + half * progress); });
  }
  for (const mcap::Problems* problems : {&verdict.problems, &run}) {
    for (const mcap::Problem& problem : problems->kept()) {
      fmt::print("{}: byte {}: {}\n", file, problem.offset, problem.text);
    }
  }
  const std::uint64_t count = verdict.problems.count() + run.count();
  const mcap::Statistics& found = verdict.statistics;
  fmt::print("{}: {} problem{}, {} chunks, {} messages in {} channels, {:.3f} s\n", file, count,
             count == 1 ? "" : "s", found.chunkCount, found.messageCount, found.channelCount,
             secondsOf(found.endTime - found.startTime));
  return count == 0 ? kSuccess : kFailure;
}

int printRecording(const std::string& file, const std::vector<std::string>& topics) {
  mcap::FileSource source(file);
  mcap::Reader reader(source);
  mcap::Problems runProblems;
  formats::RunBlocks run(reader, runProblems);
  std::string line;
  while (const std::optional<mcap::Item> item = reader.next()) {
    const auto* message = std::get_if<mcap::Message>(&*item);
    if (message == nullptr) {
      continue;
    }
    const mcap::Channel& channel = reader.channel(message->channelId);
    if (!topics.empty() && std::find(topics.begin(), topics.end(), channel.topic) == topics.end()) {
      continue;
    }
    line = R"({"topic":)";
    messages::appendJsonString(line, channel.topic);
    line += fmt::format(R"(,"log_time":{},"message":)", message->logTime);
    appendMessageText(line, reader, *message, run);
    line += "}\n";
    if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size()) {
      std::clearerr(stdout); // told here, and not once more at the end
      throw formats::OutputError(formats::OutputError::Kind::Write,
                                 "cannot write standard output: " +
                                     std::generic_category().message(errno));
    }
  }
  for (const mcap::Problems* problems : {&reader.problems(), &std::as_const(runProblems)}) {
    for (const mcap::Problem& problem : problems->kept()) {
      fmt::print(stderr, "gk: {}: byte {}: {}\n", file, problem.offset, problem.text);
    }
  }
  return reader.problems().count() + runProblems.count() == 0 ? kSuccess : kFailure;
}

} // namespace gk::app
