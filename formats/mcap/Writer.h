#pragma once

#include "formats/mcap/Compression.h"
#include "formats/mcap/Records.h"
#include "formats/mcap/Sink.h"

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace gk::formats::mcap {

/// Writes a file as its messages come: in chunks with message indexes behind them, a summary with
/// indexes and statistics at the end, and all checksums.
///
/// The schemas and channels of its messages come first in a chunk when they are new, and every
/// `kRepeatChunks`th chunk tells all that there are, so that not much is lost with a damaged one.
///
/// Memory does not grow with the file: the chunks' indexes wait for the end in a temporary file.
/// All operations raise `OutputError` when the file cannot be written, and `FormatError` for more
/// than 65535 channels or schemas. For one thread.
class Writer {
public:
  static constexpr std::size_t kChunkSize = 1 << 20;
  static constexpr std::uint64_t kRepeatChunks = 16;

  struct Options {
    Compression compression = Compression::Zstd;
    /// A chunk that has grown to this many bytes, uncompressed, is closed.
    std::size_t chunkSize = kChunkSize;
    /// How hard is tried to make chunks small, as zstd counts.
    int level = Compressor::kQuick;
    /// What its messages are, for those who have rules of their own: "ros2" or nothing.
    std::string profile{};
    /// Name of the program that writes.
    std::string library{};
    /// A topic with chunks of its own: who wants it alone need not read the others.
    std::string apart{};
  };

  /// Begins the file. `sink` outlives the writer.
  Writer(Sink& sink, Options options);
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  /// Both return the number by which the schema or channel is known from here on. `schema` is 0
  /// for a channel without one.
  std::uint16_t addSchema(std::string name, std::string encoding, std::string data);
  std::uint16_t addChannel(std::string topic, std::string messageEncoding, std::uint16_t schema,
                           StringMap metadata = {});

  /// Times in nanoseconds since 1970. The message gets the next number of its channel.
  void write(std::uint16_t channel, std::uint64_t logTime, std::uint64_t publishTime,
             std::string_view data);
  /// The same with a number of its own, for copies.
  void write(const Message& message);

  /// These close the open chunk: they lie between chunks.
  void addMetadata(const Metadata& metadata);
  void addAttachment(const Attachment& attachment);

  /// Closes the chunks that are being filled, if there are any, and hands them to the sink.
  void closeChunk();
  bool hasOpenChunk() const noexcept { return !fShared.isEmpty() || !fApart.isEmpty(); }

  /// Writes the summary and the end. Nothing may follow.
  void finish();

  /// Bytes handed to the sink so far.
  std::uint64_t size() const noexcept { return fOffset; }
  std::uint64_t messageCount() const noexcept { return fStatistics.messageCount; }

private:
  class Spill;

  /// A chunk that is being filled: its messages, where they lie, and when the first and the last of
  /// them was.
  struct OpenChunk {
    bool isEmpty() const noexcept { return messages.empty(); }

    std::string messages;
    std::map<std::uint16_t, MessageIndex> indexes;
    std::uint64_t start = 0;
    std::uint64_t end = 0;
  };

  void xWrite(std::string_view bytes);
  void xClose(OpenChunk& chunk);
  void xAppendDefinitions(const OpenChunk& chunk);
  void xDefine(const Channel& channel);
  void xWriteMessageIndexes(OpenChunk& chunk, ChunkIndex& index, std::size_t preamble);
  void xCountTime(std::uint64_t time);

  Sink& fSink;
  const std::size_t fChunkSize;
  const std::string fApartTopic;
  Compressor fCompressor;
  std::uint64_t fOffset = 0;
  /// Of everything up to the end of data.
  std::uint32_t fCrc = 0;

  std::vector<Schema> fSchemas;
  std::vector<Channel> fChannels;
  std::vector<std::uint32_t> fNextSequence;
  Statistics fStatistics;

  OpenChunk fShared;
  OpenChunk fApart;
  /// Channels and schemas that a chunk has told of.
  std::set<std::uint16_t> fToldChannels;
  std::set<std::uint16_t> fToldSchemas;

  std::unique_ptr<Spill> fChunkIndexes;
  std::string fAttachmentIndexes;
  std::string fMetadataIndexes;
  /// Kept for their memory.
  std::string fRecords;
  std::string fCompressed;
  std::string fHead;
};

} // namespace gk::formats::mcap
