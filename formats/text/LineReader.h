#pragma once

#include "formats/text/InputError.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct gzFile_s;

namespace gk::formats {

/// Reads a plain or gzipped file line by line, in memory that does not grow with the file.
///
/// A line ends with "\n" or "\r\n", the last one also with the file; a first line with "\r" in it
/// is an error, since all lines of the file may end so. A byte order mark at the file's beginning
/// is dropped. All errors are `InputError`. For one thread.
class LineReader {
public:
  /// Longest line in bytes, its end not counted.
  static constexpr std::size_t kMaxLine = 1 << 20;

  /// Opens the file. Raises for what is not there, cannot be read or is a directory.
  explicit LineReader(std::string path);

  /// The next line without its end, or nothing at the end of the file. The text is good until the
  /// next call. Raises for a line that is too long and for damaged or cut compressed data.
  std::optional<std::string_view> next();

  /// Number of the line that `next` gave last, from 1; 0 before the first.
  std::size_t line() const noexcept { return fLine; }
  const std::string& path() const noexcept { return fPath; }

  /// How much of the file has been read from the disk, 0 to 1.
  double progress() const noexcept;

  /// The error that `text` tells about the line that `next` gave last.
  InputError error(std::string text) const;

private:
  struct Closer {
    void operator()(gzFile_s* file) const noexcept;
  };

  void xFill();
  std::string_view xTake(std::size_t length, std::size_t consumed);

  std::string fPath;
  std::unique_ptr<gzFile_s, Closer> fFile;
  /// What was read and not yet given out lies between `fBegin` and `fEnd`.
  std::unique_ptr<char[]> fBuffer;
  std::size_t fBegin = 0;
  std::size_t fEnd = 0;
  std::size_t fLine = 0;
  std::uintmax_t fFileSize = 0;
  bool fAtEnd = false;
};

} // namespace gk::formats
