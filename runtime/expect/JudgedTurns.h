#pragma once

#include "gk/GKTurns.h"
#include "runtime/expect/Judge.h"

#include <boost/shared_ptr.hpp>

#include <memory>

/// The turns of a virtual run as a judge sees them, who learns from each that the moment before is
/// over.
namespace gk::runtime {

/// Shows each turn to `judge` and then to `next`. Both may be null; without a judge this is `next`.
std::shared_ptr<GK::GKTurnObserver> judgedTurns(boost::shared_ptr<Judge> judge,
                                                std::shared_ptr<GK::GKTurnObserver> next);

/// The same turns as those of `turns`, each shown to `judge`, which may be null, before it begins.
std::shared_ptr<GK::GKSchedule> judgedSchedule(boost::shared_ptr<Judge> judge,
                                               std::shared_ptr<GK::GKSchedule> turns);

} // namespace gk::runtime
