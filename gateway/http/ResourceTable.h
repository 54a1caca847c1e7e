#pragma once

#include "gateway/http/Exchange.h"

#include <span>

namespace gk::gateway {

/// All resources. Requests are answered by this table, and the description for programs is made
/// from it. Any thread.
std::span<const Route> resourceTable();

} // namespace gk::gateway
