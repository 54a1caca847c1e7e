#pragma once

#include "formats/mcap/Records.h"
#include "formats/mcap/Source.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace gk::formats::mcap {

/// Something that is wrong with a file.
struct Problem {
  /// Where, in bytes from the file's beginning.
  std::uint64_t offset = 0;
  std::string text;
};

/// What is wrong with a file. Keeps the first ones and counts all.
class Problems {
public:
  static constexpr std::size_t kKept = 100;

  void add(std::uint64_t offset, std::string text);

  const std::vector<Problem>& kept() const noexcept { return fKept; }
  std::uint64_t count() const noexcept { return fCount; }

private:
  std::vector<Problem> fKept;
  std::uint64_t fCount = 0;
};

/// Where a record lies in a file.
struct RecordPlace {
  Opcode opcode{};
  std::uint64_t offset = 0;
  /// Bytes of its content.
  std::uint64_t length = 0;

  std::uint64_t contentAt() const noexcept { return offset + kRecordHead; }
  std::uint64_t end() const noexcept { return contentAt() + length; }
};

/// All schemas and channels of a file together, in bytes: more are refused.
constexpr std::uint64_t kMaxDefinitions = 64 << 20;

/// Walks over a file's records, those in chunks not counted. Reads only their heads.
///
/// Where a head cannot be right it names the place and goes on at the next chunk that the file's
/// summary knows; without a summary the file ends there. For one thread.
class Scanner {
public:
  /// Longest content of a record that is read into memory at once, chunks apart.
  static constexpr std::uint64_t kMaxRecord = 64 << 20;

  /// Raises `FormatError` when the file does not begin as it must. `source` and `problems` outlive
  /// the scanner.
  Scanner(Source& source, Problems& problems);

  /// The next record; nothing behind the footer or at the end.
  std::optional<RecordPlace> next();

  /// The record that begins at this place; nothing where none can.
  std::optional<RecordPlace> at(std::uint64_t offset);

  /// Reads a record's content, at most `most` bytes. The view is good until the next call. Raises
  /// `FormatError` for a record that is too long.
  std::string_view content(const RecordPlace& place, std::uint64_t most = kMaxRecord);

  /// True once the file has turned out to end before its footer.
  bool isCut() const noexcept { return fIsCut; }
  /// True once records could not be told from each other somewhere.
  bool isBroken() const noexcept { return fIsBroken; }

  /// How much of the file lies behind, 0 to 1.
  double progress() const noexcept;

  /// The footer, if the file ends in one.
  std::optional<Footer> footer();

private:
  std::optional<std::uint64_t> xNextIndexedChunk(std::uint64_t from);
  bool xResume();

  Source& fSource;
  Problems& fProblems;
  std::uint64_t fPosition;
  /// Chunks before this place have been seen, or given up.
  std::uint64_t fChunksDone = 0;
  bool fIsAtEnd = false;
  bool fIsCut = false;
  bool fIsBroken = false;
  std::string fHead;
  std::string fContent;
};

/// "message index", "chunk", ...
std::string recordName(Opcode opcode);

} // namespace gk::formats::mcap
