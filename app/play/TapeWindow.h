#pragma once

#include "app/play/RunTape.h"
#include "gk/GKTime.h"

#include <cstddef>
#include <deque>

namespace gk::app {

/// The entries of a tape from some place on, in the order of their times, though what its chunks
/// hold overlaps. For one thread.
class TapeWindow {
public:
  /// `tape` outlives the window.
  explicit TapeWindow(RunTape& tape) : fTape(tape) {}

  /// Begins anew, with what may belong to this time.
  void seek(GK::GKMicros time);

  /// From now on all entries up to this time are among `entries`.
  void loadTo(GK::GKMicros time);

  /// Whoever has done with an entry takes it away.
  std::deque<TapeEntry>& entries() noexcept { return fEntries; }

private:
  RunTape& fTape;
  std::deque<TapeEntry> fEntries;
  std::size_t fNextChunk = 0;
};

} // namespace gk::app
