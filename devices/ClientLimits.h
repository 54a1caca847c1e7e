#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace gk::devices {

/// How much those who are no modules may leave behind in a host, and how much they are told at
/// once.
struct ClientLimits {
  /// Bytes of the name of a memory key, an event or a module.
  std::size_t names = 256;
  /// Bytes of a value: of its texts, and four for each number.
  std::size_t values = 64U << 10U;
  /// Memory keys and events that were not there before.
  std::size_t keys = 10'000;
  std::size_t events = 1'000;
  /// Bytes of an answer to one request.
  std::size_t answer = 16U << 20U;
};

/// Takes "NAME=N" into the limits; N must be a number from 1 on. Returns what is wrong, empty for
/// nothing.
std::string readLimit(std::string_view text, ClientLimits& limits);

/// All limits, as "names=256,values=65536,...", and back; what cannot be read is left as it is.
std::string limitsText(const ClientLimits& limits);
ClientLimits limitsOf(std::string_view text);

} // namespace gk::devices
