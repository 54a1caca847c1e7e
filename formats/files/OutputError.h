#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace gk::formats {

/// A file cannot be made or written; `what()` names it and the reason, on one line.
class OutputError : public std::runtime_error {
public:
  enum class Kind : std::uint8_t {
    /// No file can be made of this name: whoever gave it has to give another one.
    Name,
    /// There is a file of this name, and it stays.
    Exists,
    /// What was written did not get there.
    Write
  };

  OutputError(Kind kind, const std::string& text) : std::runtime_error(text), fKind(kind) {}

  Kind kind() const noexcept { return fKind; }

private:
  Kind fKind;
};

} // namespace gk::formats
