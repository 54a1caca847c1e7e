#include "gateway/past/PastView.h"

#include <algorithm>

namespace gk::gateway {

Past::View Past::xView() {
  const std::lock_guard lock(fMutex);
  if (!fLog.isEmpty()) {
    xEndPiece();
  }
  View view;
  view.pieces.assign(fPieces.begin(), fPieces.end());
  view.base = fBase;
  for (const Key& key : fKeys) {
    view.names.push_back(key.name);
    view.isInput.push_back(key.isInput);
  }
  view.byName = fByName;
  view.store = fStore;
  view.module = fModule;
  view.begin = fPieces.empty() ? fLast : std::max(fPieces.front()->begin, fLast - fOptions.length);
  view.end = fLast;
  view.isBeginGone = fIsBeginGone;
  return view;
}

} // namespace gk::gateway
