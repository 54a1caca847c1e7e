#pragma once

#include "messages/ros/Messages.h"

#include <bit>
#include <cstring>
#include <type_traits>

namespace gk::messages::ros {

/// Appends values to a string as plain CDR, version 1, little endian: the Common Data
/// Representation of the Object Management Group. Each number stands at a multiple of its size
/// after the first four bytes, which say how the rest is encoded.
class CdrWriter {
public:
  static constexpr std::string_view kHeader{"\x00\x01\x00\x00", 4};

  /// Begins a message at the end of `out`.
  explicit CdrWriter(std::string& out) : fOut(out.append(kHeader)), fBegin(out.size()) {}

  template <class T>
  requires(std::is_arithmetic_v<T> || std::is_enum_v<T>) void write(T value) {
    static_assert(std::endian::native == std::endian::little);
    xAlign(sizeof value);
    std::array<char, sizeof value> bytes;
    std::memcpy(bytes.data(), &value, sizeof value);
    fOut.append(bytes.data(), bytes.size());
  }
  void write(std::string_view text) {
    write(static_cast<std::uint32_t>(text.size() + 1));
    fOut.append(text).push_back('\0');
  }
  void write(const std::string& text) { write(std::string_view(text)); }
  template <std::size_t N> void write(const BoundedString<N>& bounded) { write(bounded.text); }
  template <class T, std::size_t N> void write(const std::array<T, N>& values) {
    for (const T& value : values) {
      write(value);
    }
  }
  template <class T> void write(const std::vector<T>& values) {
    write(static_cast<std::uint32_t>(values.size()));
    for (const T& value : values) {
      write(value);
    }
  }
  template <class M>
  requires requires { M::kName; }
  void write(const M& message) {
    std::apply([&](const auto&... field) { (write(message.*field.member), ...); }, M::fields());
  }

private:
  void xAlign(std::size_t size) {
    const std::size_t used = (fOut.size() - fBegin) % size;
    fOut.append(used == 0 ? 0 : size - used, '\0');
  }

  std::string& fOut;
  const std::size_t fBegin;
};

/// Puts `message` in place of what `out` held.
template <class M> void encode(const M& message, std::string& out) {
  out.clear();
  CdrWriter(out).write(message);
}

} // namespace gk::messages::ros
