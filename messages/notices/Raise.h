#pragma once

#include "gk/GKObserver.h"

namespace gk::messages {

/// Whether an event was raised, in either form.
inline bool isRaise(const GK::GKNotice& notice) {
  return notice.kind == GK::GKNotice::Kind::Event || notice.kind == GK::GKNotice::Kind::MicroEvent;
}

} // namespace gk::messages
