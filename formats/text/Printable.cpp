#include "formats/text/Printable.h"

#include "messages/text/Utf8.h"

#include <cstdint>

namespace gk::formats {

namespace {

/// The character that the valid bytes of `text` stand for.
std::uint32_t codePoint(std::string_view text) {
  constexpr std::uint32_t kFirstBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  std::uint32_t code = static_cast<unsigned char>(text[0]) & kFirstBits[text.size()];
  for (std::size_t i = 1; i < text.size(); ++i) {
    code = (code << 6U) | (static_cast<unsigned char>(text[i]) & 0x3FU);
  }
  return code;
}

struct Span {
  std::uint32_t first;
  std::uint32_t last;
};

/// Sorted. Unicode's categories Cc, Zl and Zp, and of Cf the marks of direction.
constexpr Span kUnprintable[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C},
                                 {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};

bool isPrintable(std::uint32_t code) {
  for (const Span& span : kUnprintable) {
    if (code >= span.first && code <= span.last) {
      return false;
    }
  }
  return true;
}

} // namespace

std::string printable(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = messages::characterLength(text);
    if (length > 0 && isPrintable(codePoint(text.substr(0, length)))) {
      clean += text.substr(0, length);
    } else {
      clean += '?';
    }
    text.remove_prefix(length > 0 ? length : 1);
  }
  return clean;
}

} // namespace gk::formats
