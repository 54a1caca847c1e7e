#include "formats/text/LineReader.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace gk::formats {

namespace {

/// Bytes asked for at once.
constexpr std::size_t kChunk = std::size_t{256} * 1024;
/// zlib's own buffer. Requests of more than twice its size of a plain file bypass it.
constexpr unsigned kZlibBuffer = 64 * 1024;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string systemText(int number) {
  return number == 0 ? "out of memory" : std::generic_category().message(number);
}

} // namespace

void LineReader::Closer::operator()(gzFile_s* file) const noexcept {
  gzclose_r(file);
}

LineReader::LineReader(std::string path) : fPath(std::move(path)) {
  std::error_code ignored;
  if (std::filesystem::is_directory(fPath, ignored)) {
    throw InputError(fPath, 0, "cannot be read: is a directory");
  }
  errno = 0;
  fFile.reset(gzopen(fPath.c_str(), "rbe"));
  if (!fFile) {
    throw InputError(fPath, 0, "cannot be read: " + systemText(errno));
  }
  gzbuffer(fFile.get(), kZlibBuffer);
  fFileSize = std::filesystem::file_size(fPath, ignored);
  // Room for the longest unfinished line with "\r", the byte that proves a line too long, and a
  // chunk. Memory that short lines never reach is never touched.
  fBuffer = std::make_unique_for_overwrite<char[]>(kMaxLine + 2 + kByteOrderMark.size() + kChunk);
}

double LineReader::progress() const noexcept {
  // Pipes and devices have no size.
  if (fFileSize == 0 || fFileSize == static_cast<std::uintmax_t>(-1)) {
    return 0.0;
  }
  return static_cast<double>(gzoffset(fFile.get())) / static_cast<double>(fFileSize);
}

InputError LineReader::error(std::string text) const {
  return {fPath, std::max<std::size_t>(fLine, 1), std::move(text)};
}

std::optional<std::string_view> LineReader::next() {
  for (;;) {
    const std::size_t pending = fEnd - fBegin;
    const char* start = fBuffer.get() + fBegin;
    if (const void* found = pending == 0 ? nullptr : std::memchr(start, '\n', pending)) {
      const auto length = static_cast<std::size_t>(static_cast<const char*>(found) - start);
      return xTake(length, length + 1);
    }
    if (fAtEnd) {
      if (pending == 0) {
        return std::nullopt;
      }
      return xTake(pending, pending);
    }
    if (pending > kMaxLine + 1 + kByteOrderMark.size()) {
      xTake(pending, pending); // Too long already: raises.
    }
    xFill();
  }
}

std::string_view LineReader::xTake(std::size_t length, std::size_t consumed) {
  std::string_view text(fBuffer.get() + fBegin, length);
  fBegin += consumed;
  ++fLine;
  if (fLine == 1 && text.starts_with(kByteOrderMark)) {
    text.remove_prefix(kByteOrderMark.size());
  }
  if (text.ends_with('\r')) {
    text.remove_suffix(1);
  }
  // A file of which all lines end so is one line to us: its first.
  if (fLine == 1 && text.find('\r') != std::string_view::npos) {
    throw error("a carriage return (CR) in the line: lines have to end with LF or CR LF");
  }
  if (text.size() > kMaxLine) {
    throw error("line is longer than " + std::to_string(kMaxLine) + " bytes");
  }
  return text;
}

void LineReader::xFill() {
  std::memmove(fBuffer.get(), fBuffer.get() + fBegin, fEnd - fBegin);
  fEnd -= fBegin;
  fBegin = 0;
  errno = 0;
  const int count = gzread(fFile.get(), fBuffer.get() + fEnd, kChunk);
  if (count > 0) {
    fEnd += static_cast<std::size_t>(count);
    return;
  }
  // Cut compressed data reads as an ordinary end, with an error pending.
  const int systemError = errno;
  int status = Z_OK;
  const char* message = gzerror(fFile.get(), &status);
  if (status == Z_ERRNO) {
    throw InputError(fPath, fLine + 1, "cannot be read: " + systemText(systemError));
  }
  if (status != Z_OK) {
    throw InputError(fPath, fLine + 1,
                     std::string("damaged or cut compressed data (") + message + ")");
  }
  fAtEnd = true;
}

} // namespace gk::formats
