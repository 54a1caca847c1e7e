#pragma once

#include "messages/ros/Messages.h"
#include "messages/ros/Type.h"

namespace gk::messages::ros {

/// What is known of message type `M`, of those that messages are made of on topics. Never changes;
/// from any thread.
template <class M> const Type& typeOf();

} // namespace gk::messages::ros
