#pragma once

#include "formats/run/RunLog.h"
#include "formats/run/RunLogCode.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace gk::formats {

/// Writes the blocks of a run log. For one thread.
class RunLogWriter {
public:
  /// A block after so many microseconds can be read without those before it, so that no more is
  /// lost with one that is damaged.
  static constexpr GK::GKMicros kAnewTime = 10'000'000;

  void add(const RunTurn& turn);
  void add(const RunWall& wall);
  void add(const RunTask& task);
  void add(const RunKey& key);
  void add(const RunAction& action);
  void add(const RunStart& start);
  void add(const RunLost& lost);
  void add(const RunOverlap&);

  /// Values come one by one: begun, in ascending order of their numbers, ended.
  void beginValues() { fChanged.clear(); }
  void addValue(std::uint64_t index, const GK::GKValue& value);
  void endValues();

  bool isEmpty() const noexcept { return fEntries.empty(); }
  std::size_t size() const noexcept {
    return fEntries.size() + fFlips.size() + fPlaces.size() + fRaw.size();
  }
  /// Time of the block's first turn.
  GK::GKMicros startTime() const noexcept { return fStart.value_or(fTime); }

  /// The block. The next entry begins another one.
  std::string take();

  /// The block that begins with the next entry can be read without those before it. Where no block
  /// has begun.
  void beginAnew();

private:
  void xAddScalar(std::uint64_t index, GK::GKValue::Type type, std::uint32_t bits);

  // A block's parts, each of bytes that are like each other, so that they compress well.
  std::string fEntries;
  std::string fFlips;
  std::string fPlaces;
  std::string fRaw;

  bool fIsAnew = true;
  GK::GKMicros fAnewTime = 0;
  std::optional<GK::GKMicros> fStart;
  GK::GKMicros fTime = 0;
  std::vector<runlog::LatestValues> fColumns;
  /// Keys that change now, and those that changed before. Both ascending.
  std::vector<std::uint64_t> fChanged;
  std::vector<std::uint64_t> fChangedBefore;
  std::vector<std::uint64_t> fDifference;
};

} // namespace gk::formats
