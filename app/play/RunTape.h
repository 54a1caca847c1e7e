#pragma once

#include "formats/mcap/ChunkLoader.h"
#include "formats/mcap/Records.h"
#include "formats/mcap/Scanner.h"
#include "formats/mcap/Source.h"
#include "formats/run/RunLogReader.h"
#include "gk/GKObserver.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gk::app {

/// Something that happened in a recorded run.
struct TapeEntry {
  /// What happened at the same time comes in this order.
  enum class Kind : std::uint8_t {
    Values, ///< device keys have changed
    Raise,  ///< an event or micro-event
    Log,    ///< a log line
    Sample, ///< what a channel told of keys
    Tick    ///< a loop's tick has ended
  };

  bool isBefore(const TapeEntry& other) const noexcept {
    return time != other.time ? time < other.time : kind < other.kind;
  }

  GK::GKMicros time = 0;
  Kind kind = Kind::Tick;
  /// By number of the tape's keys.
  std::vector<std::pair<std::size_t, GK::GKValue>> values;
  GK::GKNotice notice;
};

/// A recorded run, to be read from any place: opening it reads no more than where its chunks lie.
/// For one thread.
class RunTape {
public:
  /// A block of the run log ends at most so much later than the chunk around it says.
  static constexpr GK::GKMicros kOverlap = 1'500'000;

  enum class Detail : std::uint8_t {
    All,
    WithoutSamples,
    Ticks ///< alone: wherever they are looked for, nothing before them has to be read
  };

  /// Raises `InputError` for what is no recording, or an empty one.
  explicit RunTape(const std::string& path);
  /// The same recording again, for another reader. Raises `InputError`.
  RunTape(const RunTape& other);
  RunTape& operator=(const RunTape&) = delete;

  /// It has what viewers are told. What holds input alone has to be run first.
  bool hasChannels() const noexcept { return fHasChannels; }
  /// Microseconds since 1970 at time 0.
  std::int64_t epoch() const noexcept { return fEpoch; }
  GK::GKMicros begin() const noexcept { return fBegin; }
  GK::GKMicros end() const noexcept { return fEnd; }
  /// Whose ticks they are.
  const std::string& module() const noexcept { return fModule; }
  /// Names of the keys by their numbers; grows as the tape is read.
  const std::vector<std::string>& keys() const noexcept { return fKeys; }
  /// Channels sample this key.
  bool isSampled(std::size_t key) const { return key < fSampledKeys; }

  std::size_t chunkCount() const noexcept { return fChunks.size(); }
  GK::GKMicros chunkBegin(std::size_t chunk) const { return fChunks.at(chunk).begin; }
  /// The first chunk that may hold something of this time.
  std::size_t chunkBefore(GK::GKMicros time) const;

  /// What happened in a chunk, in the order of its times. A damaged chunk is empty.
  std::vector<TapeEntry> load(std::size_t chunk, Detail detail = Detail::All);

private:
  struct Chunk {
    formats::mcap::RecordPlace place;
    GK::GKMicros begin = 0;
    GK::GKMicros end = 0;
  };
  /// The fields of a channel and the keys that they tell of.
  using Fields = std::map<std::string, std::pair<std::size_t, int>, std::less<>>;

  void xAddSubjects();
  void xFindChunks();
  void xFindEpoch();
  std::size_t xKey(std::string_view name);
  GK::GKMicros xTime(std::uint64_t nanoseconds) const;
  /// The messages of a chunk, each to be read at once.
  template <class Take> void xEach(std::size_t chunk, const Take& take);
  void xTake(const formats::mcap::Message& message, Detail detail, std::vector<TapeEntry>& entries);
  void xTakeRun(const formats::mcap::Message& block, std::vector<TapeEntry>& entries);
  /// Has the run log read up to this chunk, from the last block before it that stands alone.
  void xReadLogBefore(std::size_t chunk);
  bool xIsBlock(const formats::mcap::Message& message) const;
  void xTakeMessage(const std::string& topic, GK::GKMicros time, std::string_view text,
                    Detail detail, std::vector<TapeEntry>& entries);

  std::string fPath;
  formats::mcap::FileSource fSource;
  formats::mcap::ChunkLoader fLoader{fSource};
  /// Where chunks lie, with times in nanoseconds since 1970 until the epoch is known.
  std::vector<Chunk> fChunks;
  std::map<std::uint16_t, formats::mcap::Channel> fChannels;
  std::int64_t fEpoch = 0;
  GK::GKMicros fBegin = 0;
  GK::GKMicros fEnd = 0;
  bool fHasRun = false;
  bool fHasChannels = false;
  /// Its turns are those of tasks, not of input alone.
  bool fHasTurns = false;
  std::string fModule = "GKSensors";
  std::set<std::uint64_t> fLoops;

  std::vector<std::string> fKeys;
  std::map<std::string, std::size_t, std::less<>> fByName;
  std::size_t fSampledKeys = 0;
  formats::RunLogReader fLog;
  /// The chunk up to which the run log has been read; none where it cannot be read on.
  std::optional<std::size_t> fLogChunk = 0;
  /// Numbers of the run log's keys.
  std::map<std::uint64_t, std::size_t> fRunKeys;
  std::map<std::string, Fields, std::less<>> fTopics;
};

} // namespace gk::app
