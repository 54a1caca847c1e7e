#pragma once

#include "formats/mcap/ChunkLoader.h"
#include "formats/mcap/Records.h"
#include "formats/mcap/Scanner.h"
#include "formats/mcap/Source.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <variant>

namespace gk::formats::mcap {

/// What a reader gives out. Views are good until its next call.
using Item = std::variant<Message, Metadata, Attachment>;

/// Reads a file from its beginning to its end, in memory that does not grow with its length.
///
/// A damaged chunk is left out, and `problems` names it; of a file that was cut off everything up
/// to its last whole chunk is read. For one thread.
class Reader {
public:
  /// True for a channel that is wanted.
  using Wanted = std::function<bool(const Channel&)>;

  /// Raises `FormatError` when the file does not begin as it must. `source` outlives the reader.
  explicit Reader(Source& source, std::uint64_t maxChunk = ChunkLoader::kMaxChunk);

  /// Only messages of these channels are given out. Chunks that hold others alone, by what the
  /// indexes behind them tell, are not read, once a channel that is wanted is known.
  void want(Wanted wanted) { fWanted = std::move(wanted); }

  /// From now on the next chunk is decompressed by a second thread while the present one is given
  /// out. For files that are read to their end.
  void readAhead() noexcept { fIsReadingAhead = true; }

  /// The next message, metadata or attachment in the order of the file; nothing at the end.
  /// Raises only what `source` raises.
  std::optional<Item> next();

  /// Where in the file the item that was given out last lies: its record, or the chunk around it.
  std::uint64_t itemOffset() const noexcept { return fItemOffset; }

  /// The channel of a message given out, with its schema if it has one.
  const Channel& channel(std::uint16_t id) const { return fChannels.at(id); }
  const Schema* schema(std::uint16_t id) const;
  const std::map<std::uint16_t, Channel>& channels() const noexcept { return fChannels; }

  const Problems& problems() const noexcept { return fProblems; }
  bool isCut() const noexcept { return fScanner.isCut(); }
  std::uint64_t chunkCount() const noexcept { return fChunks; }
  double progress() const noexcept { return fScanner.progress(); }

  /// The header's profile and library, once the first item has been read.
  const std::string& profile() const noexcept { return fProfile; }
  const std::string& library() const noexcept { return fLibrary; }

private:
  std::optional<Item> xNextInner();
  std::optional<Item> xTake(const RecordPlace& place);
  std::optional<Item> xTakeMessage(std::string_view content, std::uint64_t offset);
  /// Takes note of a schema or a channel.
  void xDefine(Opcode opcode, std::string_view content, std::uint64_t offset);
  void xLoadChunk(const RecordPlace& place);
  bool xMayHoldWanted(const RecordPlace& chunk);
  void xLoadAhead(const RecordPlace& chunk);
  /// Takes what the summary tells of schemas and channels.
  void xReadSummary();

  Source& fSource;
  Problems fProblems;
  Scanner fScanner;
  ChunkLoader fLoader;
  InnerRecords fInner;
  /// Where the chunk being read begins.
  std::uint64_t fChunkOffset = 0;
  std::uint64_t fItemOffset = 0;
  std::uint64_t fChunks = 0;
  std::map<std::uint16_t, Schema> fSchemas;
  std::map<std::uint16_t, Channel> fChannels;
  std::uint64_t fDefinitionBytes = 0;
  bool fIsSummaryRead = false;
  bool fIsReadingAhead = false;
  Wanted fWanted;
  std::set<std::uint16_t> fWantedChannels;
  std::string fProfile;
  std::string fLibrary;
};

} // namespace gk::formats::mcap
