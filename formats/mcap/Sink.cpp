#include "formats/mcap/Sink.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace gk::formats::mcap {

namespace {

WriteError failure(const std::string& path, int error) {
  return WriteError("cannot write " + path + ": " + std::generic_category().message(error));
}

} // namespace

FileSink::FileSink(std::string path)
    : fPath(std::move(path)),
      fFile(::open(fPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
  if (fFile < 0) {
    throw failure(fPath, errno);
  }
}

FileSink::~FileSink() {
  ::close(fFile);
}

void FileSink::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fFile, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      throw failure(fPath, errno);
    }
    bytes.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
  }
}

void FileSink::sync() {
  // Pipes and devices have nothing to keep.
  if (::fdatasync(fFile) != 0 && errno != EINVAL && errno != EROFS) {
    throw failure(fPath, errno);
  }
}

} // namespace gk::formats::mcap
