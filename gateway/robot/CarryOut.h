#pragma once

#include "formats/lines/Action.h"

#include <functional>

namespace gk::gateway {

/// Does `work`, with which a client changes something in the host, once and before it returns.
/// `action` tells what, for whoever records the run. Any thread.
using CarryOut =
    std::function<void(const formats::Action& action, const std::function<void()>& work)>;

/// Does `work` where the host's clock lets it be done, and returns when that is done, with what it
/// raises; when the host ends it may not be done at all. Any thread.
using Outside = std::function<void(const std::function<void()>& work)>;

} // namespace gk::gateway
