#pragma once

#include "gk/GKObserver.h"
#include "gk/GKValue.h"

#include <cstddef>

namespace gk::messages {

/// What a value takes besides itself, in bytes: its text, and the elements of its arrays with what
/// they take. About so much: allocators add their own.
std::size_t heapOf(const GK::GKValue& value);

/// What a notice takes in all, in bytes, about.
std::size_t bytesOf(const GK::GKNotice& notice);

} // namespace gk::messages
