#pragma once

#include "gk/GKObserver.h"
#include "messages/json/JsonWriter.h"

namespace gk::messages {

/// Appends the members that tell what an event or micro-event was, whoever is told: "t_s" (seconds
/// since the clock started), "kind" ("event" or "micro") and "value". The name comes before them
/// where it is told at all.
void appendEvent(JsonWriter& json, const GK::GKNotice& notice);

} // namespace gk::messages
