#pragma once

#include "formats/lines/Action.h"
#include "formats/mcap/Records.h"
#include "formats/run/RunLogWriter.h"
#include "gk/GKClock.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What has happened until now.
namespace gk::gateway {

struct PastOptions {
  /// How much of the past is kept; nothing at all for 0.
  GK::GKMicros length = 600'000'000;
  /// Bytes that it may take: where that is too little, less is kept.
  std::size_t bytes = 32U << 20U;
};

/// Which piece of the past is wanted, in microseconds since the start.
struct PastRange {
  std::optional<GK::GKMicros> from;
  std::optional<GK::GKMicros> to;
  /// Between two samples; 0 for events alone.
  GK::GKMicros step = 100'000;
  /// Bytes at which an answer ends.
  std::size_t most = 16U << 20U;
  /// What there is elsewhere, where this is a part of it.
  std::optional<std::pair<GK::GKMicros, GK::GKMicros>> whole = std::nullopt;
  /// Where to go on when all of this has been told.
  std::optional<GK::GKMicros> rest = std::nullopt;
};

/// The last minutes of a run: values of keys at each tick, events, and what clients did. Written on
/// one thread, read on any.
class Past {
public:
  /// Pieces by which the past is forgotten.
  static constexpr GK::GKMicros kPieceTime = 1'000'000;

  explicit Past(PastOptions options) : fOptions(options) {}

  bool isOn() const noexcept { return fOptions.length > 0; }

  /// From now on the keys of `store` are kept; null for none.
  void open(std::shared_ptr<const GK::GKMemoryStore> store);

  void onNotice(const GK::GKNotice& notice);
  /// A loop has ended a tick: the values are those of this moment.
  void onTick(GK::GKMicros time, std::string_view module);

  // Any thread.

  /// A client changes something.
  void onAction(GK::GKMicros time, const formats::Action& action);

  /// Values and events as the page takes them, docs/gateway.md tells how. `session` goes into it.
  std::string json(const PastRange& range, std::string_view session);

  /// The last so many microseconds as a recording that can be played: its time 0 is their
  /// beginning. `epoch`: microseconds since 1970 at time 0 of the run; `first`: what has to be done
  /// at its beginning, since it was done before. Nothing while nothing is kept.
  std::optional<std::string> recording(GK::GKMicros last, std::int64_t epoch,
                                       formats::mcap::StringMap about,
                                       const std::vector<formats::Action>& first);

private:
  struct Key {
    std::string name;
    const GK::GKMemoryCell* cell = nullptr;
    /// Written by the device layer, and thus what a replay plays.
    bool isInput = false;
    /// As told last; invalid for a key that was not there.
    GK::GKValue told;
  };
  struct Piece {
    GK::GKMicros begin = 0;
    std::string log;
    std::vector<GK::GKNotice> events;
    std::size_t bytes = 0;
  };
  /// What a reader looks at while the past goes on.
  struct View;

  void xBeginPieceAt(GK::GKMicros time);
  void xEndPiece();
  void xEndPieceIfFull();
  void xForget();
  void xForgetOldest();
  View xView();

  const PastOptions fOptions;

  std::mutex fMutex;
  std::shared_ptr<const GK::GKMemoryStore> fStore;
  std::vector<Key> fKeys;
  std::map<std::string, std::size_t, std::less<>> fByName;
  std::deque<std::shared_ptr<const Piece>> fPieces;
  std::size_t fBytes = 0;
  /// Values before the oldest piece.
  std::vector<GK::GKValue> fBase;
  /// The piece that is being made.
  formats::RunLogWriter fLog;
  std::vector<GK::GKNotice> fEvents;
  std::size_t fEventBytes = 0;
  GK::GKMicros fPieceBegin = 0;
  GK::GKMicros fLast = 0;
  std::string fModule;
  /// The beginning of the run has been forgotten, or was never seen.
  bool fIsBeginGone = false;
};

} // namespace gk::gateway
