#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

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

/// Raises `FormatError` for a piece of memory of which more is asked for than is left.
[[noreturn]] void endTooEarly();

/// Reads numbers and texts one after the other out of a piece of memory that stays where it is.
/// Every operation raises `FormatError` when less is left than it takes.
class ByteCursor {
public:
  explicit ByteCursor(std::string_view bytes)
      : fBegin(bytes.data()), fAt(fBegin), fEnd(fBegin + bytes.size()) {}

  template <std::unsigned_integral T> T number() {
    static_assert(std::endian::native == std::endian::little);
    T value = 0;
    std::memcpy(&value, xTake(sizeof(T)), sizeof(T));
    return value;
  }

  std::string_view bytes(std::uint64_t count) { return {xTake(count), count}; }

  /// A text with its length in 32 bits.
  std::string_view text() { return bytes(number<std::uint32_t>()); }

  std::size_t position() const noexcept { return static_cast<std::size_t>(fAt - fBegin); }
  std::size_t left() const noexcept { return static_cast<std::size_t>(fEnd - fAt); }
  bool isAtEnd() const noexcept { return fAt == fEnd; }

private:
  /// Short, since it is inlined wherever a byte is read.
  const char* xTake(std::uint64_t count) {
    if (count > left()) {
      endTooEarly();
    }
    return std::exchange(fAt, fAt + count);
  }

  const char* fBegin;
  const char* fAt;
  const char* fEnd;
};

} // namespace gk::formats::mcap
