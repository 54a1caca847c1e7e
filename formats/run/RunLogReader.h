#pragma once

#include "formats/mcap/Bytes.h"
#include "formats/run/RunLog.h"
#include "formats/run/RunLogCode.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace gk::formats {

/// Reads a run log, block by block. For one thread.
class RunLogReader {
public:
  /// Keys that a run may have: more are refused.
  static constexpr std::size_t kMaxKeys = 1 << 16;

  RunLogReader() = default;
  /// For a block of the present encoding that can be read without those before it. Raises
  /// `FormatError` as `begin` does.
  explicit RunLogReader(std::string_view block) { begin(block, 0, kRunEncoding); }

  /// A block that stays where it is until the next one begins. `number`: of the message, counted up
  /// in its channel. `encoding`: one of those that `isRunEncoding` knows. Raises `FormatError` for
  /// what is no block.
  void begin(std::string_view block, std::uint32_t number, std::string_view encoding);

  /// The next entry; nothing at the end of the block. Raises `FormatError` for what is no entry;
  /// nothing more is to be read of the block then.
  std::optional<RunEntry> next();

  /// The values of this block cannot be read, since blocks before it are missing.
  bool isBlind() const noexcept { return !fIsListed && fIsBlind; }

private:
  std::optional<RunEntry> xNext();
  RunValues xValues();
  /// Of the first encoding.
  RunValues xListedValues();
  void xFlip();
  void xTakeNew(std::uint8_t place, RunValue& value);
  RunValue xLarge(std::uint32_t key, mcap::ByteCursor& from);
  void xForget();

  mcap::ByteCursor fEntries{{}};
  mcap::ByteCursor fFlips{{}};
  mcap::ByteCursor fPlaces{{}};
  mcap::ByteCursor fRaw{{}};
  bool fIsListed = false;
  /// What the values of this block build upon is not known.
  bool fIsBlind = true;
  std::optional<std::uint32_t> fNumber;
  GK::GKMicros fTime = 0;

  std::vector<runlog::LatestValues> fColumns;
  /// The keys that change, a bit each, and how many there are.
  std::vector<std::uint64_t> fChanged;
  std::size_t fChangedCount = 0;
  std::vector<RunValue> fValues;
  std::vector<GK::GKValue> fLarge;
};

} // namespace gk::formats
