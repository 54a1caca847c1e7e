#include "formats/mcap/Crc.h"

#include <zlib.h>

namespace gk::formats::mcap {

std::uint32_t crcOf(std::string_view bytes, std::uint32_t before) {
  return static_cast<std::uint32_t>(
      crc32_z(before, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

} // namespace gk::formats::mcap
