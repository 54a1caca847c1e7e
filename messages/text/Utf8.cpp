#include "messages/text/Utf8.h"

namespace gk::messages {

std::size_t characterLength(std::string_view text) {
  const auto byteAt = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byteAt(0);
  if (lead < 0x80) {
    return 1;
  }
  std::size_t length = 0;
  // Range of the second byte: keeps out long forms, surrogates and what lies beyond U+10FFFF.
  unsigned low = 0x80;
  unsigned high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    low = lead == 0xE0 ? 0xA0 : low;
    high = lead == 0xED ? 0x9F : high;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    low = lead == 0xF0 ? 0x90 : low;
    high = lead == 0xF4 ? 0x8F : high;
  }
  if (length == 0 || text.size() < length || byteAt(1) < low || byteAt(1) > high) {
    return 0;
  }
  for (std::size_t i = 2; i < length; ++i) {
    if (byteAt(i) < 0x80 || byteAt(i) > 0xBF) {
      return 0;
    }
  }
  return length;
}

} // namespace gk::messages
