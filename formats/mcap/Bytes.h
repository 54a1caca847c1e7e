#pragma once

#include "messages/text/FormatError.h"

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

/// Little-endian numbers and length-prefixed texts.
namespace gk::formats::mcap {

/// Appends an unsigned number.
template <std::unsigned_integral T> void appendNumber(std::string& out, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    out.push_back(static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i) & 0xFF));
  }
}

/// Appends a text with its length in 32 bits.
inline void appendText(std::string& out, std::string_view text) {
  appendNumber(out, static_cast<std::uint32_t>(text.size()));
  out += text;
}

/// Reads numbers and texts one after the other out of a piece of memory that stays where it is.
/// Every operation raises `FormatError` when less is left than it takes.
class ByteCursor {
public:
  explicit ByteCursor(std::string_view bytes) : fBytes(bytes) {}

  template <std::unsigned_integral T> T number() {
    const std::string_view part = bytes(sizeof(T));
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
      value |= static_cast<std::uint64_t>(static_cast<unsigned char>(part[i])) << (8 * i);
    }
    return static_cast<T>(value);
  }

  std::string_view bytes(std::uint64_t count) {
    if (count > fBytes.size() - fPosition) {
      throw messages::FormatError("it ends too early");
    }
    const std::string_view part = fBytes.substr(fPosition, count);
    fPosition += count;
    return part;
  }

  /// A text with its length in 32 bits.
  std::string_view text() { return bytes(number<std::uint32_t>()); }

  std::size_t position() const noexcept { return fPosition; }
  std::size_t left() const noexcept { return fBytes.size() - fPosition; }
  bool isAtEnd() const noexcept { return left() == 0; }

private:
  std::string_view fBytes;
  std::size_t fPosition = 0;
};

} // namespace gk::formats::mcap
