#pragma once

#include <cstdint>
#include <string_view>

namespace gk::formats::mcap {

/// CRC-32 (IEEE 802.3) of `bytes`, carried on from that of what came before them.
std::uint32_t crcOf(std::string_view bytes, std::uint32_t before = 0);

} // namespace gk::formats::mcap
