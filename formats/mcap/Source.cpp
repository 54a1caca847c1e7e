#include "formats/mcap/Source.h"

#include "formats/text/InputError.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace gk::formats::mcap {

namespace {

/// Pieces up to this size are read from a window of that size.
constexpr std::size_t kSmall = 256;
constexpr std::size_t kWindow = 8192;

InputError failure(const std::string& path, const std::string& why) {
  return {path, 0, "cannot be read: " + why};
}

std::string systemText() {
  return std::generic_category().message(errno);
}

} // namespace

FileSource::FileSource(std::string path)
    : fPath(std::move(path)), fFile(::open(fPath.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (fFile < 0) {
    throw failure(fPath, systemText());
  }
  struct stat status {};
  if (::fstat(fFile, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(fFile);
    throw failure(fPath, "is no regular file");
  }
  fSize = static_cast<std::uint64_t>(status.st_size);
}

FileSource::~FileSource() {
  ::close(fFile);
}

void FileSource::read(std::uint64_t offset, std::size_t count, std::string& out) {
  if (count > kSmall) {
    xRead(offset, count, out);
    return;
  }
  if (offset < fWindowAt || offset + count > fWindowAt + fWindow.size()) {
    xRead(offset, kWindow, fWindow);
    fWindowAt = offset;
  }
  const std::uint64_t from = std::min<std::uint64_t>(offset - fWindowAt, fWindow.size());
  out.assign(fWindow, from, count);
}

void FileSource::xRead(std::uint64_t offset, std::size_t count, std::string& out) {
  const std::uint64_t left = offset < fSize ? fSize - offset : 0;
  out.resize(static_cast<std::size_t>(std::min<std::uint64_t>(count, left)));
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t read =
        ::pread(fFile, out.data() + done, out.size() - done, static_cast<off_t>(offset + done));
    if (read < 0 && errno != EINTR) {
      throw failure(fPath, systemText());
    }
    if (read == 0) {
      // The file has been cut meanwhile.
      out.resize(done);
    }
    done += read > 0 ? static_cast<std::size_t>(read) : 0;
  }
}

} // namespace gk::formats::mcap
