#pragma once

#include <string>

namespace gk::app {

/// The first line of a description, without what surrounds it.
inline std::string firstLineOf(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  const std::size_t end = line.find_last_not_of(' ');
  return end == std::string::npos ? std::string() : line.substr(0, end + 1);
}

} // namespace gk::app
