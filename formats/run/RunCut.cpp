#include "formats/run/RunCut.h"

#include "formats/mcap/Copier.h"
#include "formats/mcap/Reader.h"
#include "formats/run/RunBlocks.h"
#include "formats/run/RunLogWriter.h"
#include "messages/text/Numbers.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace gk::formats {

namespace {

constexpr std::uint64_t kNanosPerMicro = 1000;

/// When a run began, in nanoseconds since 1970, as far as a file tells.
std::optional<std::uint64_t> beginningOf(mcap::Source& source) {
  mcap::Reader reader(source);
  mcap::Problems problems;
  RunBlocks blocks(reader, problems);
  std::optional<std::uint64_t> first;
  while (const std::optional<mcap::Item> item = reader.next()) {
    const auto* message = std::get_if<mcap::Message>(&*item);
    if (message == nullptr) {
      continue;
    }
    first = std::min(first.value_or(message->logTime), message->logTime);
    if (!blocks.isBlock(*message)) {
      continue;
    }
    // A block has the time of its first turn.
    blocks.begin(*message);
    while (const std::optional<RunEntry> entry = blocks.next()) {
      if (const auto* turn = std::get_if<RunTurn>(&*entry)) {
        return message->logTime - static_cast<std::uint64_t>(turn->time) * kNanosPerMicro;
      }
    }
  }
  return first;
}

/// Copies a recording up to the end of a part.
class Cutter {
public:
  Cutter(mcap::Source& source, mcap::Sink& sink, const CutRange& range,
         mcap::Compression compression)
      : fSink(sink), fRange(range), fCompression(compression),
        fBeginning(beginningOf(source).value_or(0)), fReader(source),
        fBlocks(fReader, fResult.runProblems) {}

  CutResult cut(const mcap::Progress& progress) {
    while (const std::optional<mcap::Item> item = fReader.next()) {
      if (fCopier == nullptr) {
        xBegin();
      }
      const auto* message = std::get_if<mcap::Message>(&*item);
      if (message == nullptr) {
        std::visit(*fCopier, *item);
        ++(std::holds_alternative<mcap::Metadata>(*item) ? fResult.metadata : fResult.attachments);
      } else if (fBlocks.isBlock(*message)) {
        xTakeBlock(*message);
      } else if (xIsWithin(message->logTime)) {
        (*fCopier)(*message);
        ++fResult.messages;
      }
      if (progress) {
        progress(fReader.progress());
      }
    }
    if (fCopier != nullptr) {
      fCopier->finish();
    }
    fResult.problems = fReader.problems();
    fResult.isCutOff = fReader.isCut();
    return fResult;
  }

private:
  void xBegin() {
    fCopier = std::make_unique<mcap::Copier>(fReader, fSink, fCompression, kRunTopic);
    if (fRange.isAll()) {
      return;
    }
    mcap::Metadata about{kCutMetadata, {}};
    messages::appendSeconds(about.values[kCutFromMember], fRange.from);
    if (fRange.to != CutRange().to) {
      messages::appendSeconds(about.values[kCutToMember], fRange.to);
    }
    fCopier->writer().addMetadata(about);
  }

  /// As it is written now, up to the last turn of the part.
  void xTakeBlock(const mcap::Message& message) {
    if (fIsOver) {
      return;
    }
    fBlocks.begin(message);
    while (const std::optional<RunEntry> entry = fBlocks.next()) {
      if (const auto* turn = std::get_if<RunTurn>(&*entry)) {
        fIsOver = turn->time > fRange.to;
        if (fIsOver) {
          break;
        }
        ++fResult.turns;
      }
      std::visit([this](const auto& one) { xAdd(one); }, *entry);
    }
    if (!fLog.isEmpty()) {
      mcap::Writer& writer = fCopier->writer();
      if (!fChannel) {
        fChannel = writer.addChannel(kRunTopic, kRunEncoding, 0);
      }
      writer.write(*fChannel, message.logTime, message.publishTime, fLog.take());
      ++fResult.messages;
    }
  }

  template <class Entry> void xAdd(const Entry& entry) { fLog.add(entry); }
  void xAdd(const RunValues& values) {
    fLog.beginValues();
    for (const RunValue& value : values.values) {
      fLog.addValue(value.key, values.value(value));
    }
    fLog.endValues();
  }

  bool xIsWithin(std::uint64_t time) const {
    if (fRange.isAll()) {
      return true;
    }
    const auto since = static_cast<std::int64_t>(time - fBeginning);
    const auto micros = since / static_cast<std::int64_t>(kNanosPerMicro);
    return micros >= fRange.from && micros <= fRange.to;
  }

  mcap::Sink& fSink;
  const CutRange fRange;
  const mcap::Compression fCompression;
  const std::uint64_t fBeginning;
  mcap::Reader fReader;
  CutResult fResult;
  RunBlocks fBlocks;
  RunLogWriter fLog;
  std::unique_ptr<mcap::Copier> fCopier;
  std::optional<std::uint16_t> fChannel;
  /// The part has ended.
  bool fIsOver = false;
};

} // namespace

CutResult cutRun(mcap::Source& source, mcap::Sink& sink, const CutRange& range,
                 mcap::Compression compression, const mcap::Progress& progress) {
  return Cutter(source, sink, range, compression).cut(progress);
}

} // namespace gk::formats
