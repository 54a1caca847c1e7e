#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace gk::formats {

/// An input file is malformed or cannot be read; `what()` is "FILE:LINE: text", on one line, and
/// "FILE: text" for what is no matter of a line.
class InputError : public std::runtime_error {
public:
  /// `line` counts from 1; it is 0 for a file that cannot be opened, or is another kind of file.
  InputError(std::string file, std::size_t line, std::string text)
      : std::runtime_error(file + ":" + (line > 0 ? std::to_string(line) + ":" : "") + " " + text),
        fFile(std::move(file)), fLine(line), fText(std::move(text)) {}

  const std::string& getFile() const noexcept { return fFile; }
  std::size_t getLine() const noexcept { return fLine; }
  const std::string& getText() const noexcept { return fText; }

private:
  std::string fFile;
  std::size_t fLine;
  std::string fText;
};

} // namespace gk::formats
