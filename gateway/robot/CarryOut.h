#pragma once

#include "formats/lines/Action.h"

#include <functional>

namespace gk::gateway {

/// Does `work`, with which a client changes something in the host, once and before it returns.
/// `action` tells what, for whoever records the run. Any thread.
using CarryOut =
    std::function<void(const formats::Action& action, const std::function<void()>& work)>;

} // namespace gk::gateway
