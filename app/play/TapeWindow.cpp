#include "app/play/TapeWindow.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace gk::app {

void TapeWindow::seek(GK::GKMicros time) {
  fEntries.clear();
  fNextChunk = fTape.chunkBefore(time);
}

void TapeWindow::loadTo(GK::GKMicros time) {
  while (fNextChunk < fTape.chunkCount() && fTape.chunkBegin(fNextChunk) <= time) {
    std::vector<TapeEntry> entries = fTape.load(fNextChunk++);
    const auto middle = static_cast<std::ptrdiff_t>(fEntries.size());
    fEntries.insert(fEntries.end(), std::make_move_iterator(entries.begin()),
                    std::make_move_iterator(entries.end()));
    std::inplace_merge(fEntries.begin(), fEntries.begin() + middle, fEntries.end(),
                       [](const TapeEntry& a, const TapeEntry& b) { return a.isBefore(b); });
  }
}

} // namespace gk::app
