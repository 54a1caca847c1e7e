#include "app/test/Scratch.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace gk::app {

Scratch::Scratch(Place place) {
  if (place == Place::Disk) {
    std::error_code error;
    const std::string folder = std::filesystem::temp_directory_path(error);
    constexpr int mine = 0600;
    fDescriptor = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mine);
  }
  // Not every file system has files without names.
  if (fDescriptor < 0) {
    fDescriptor = ::memfd_create("gk-test", MFD_CLOEXEC);
  }
  if (fDescriptor < 0) {
    throw std::system_error(errno, std::generic_category(), "no room for what tests write");
  }
}

Scratch::~Scratch() {
  if (fDescriptor >= 0) {
    ::close(fDescriptor);
  }
}

Scratch::Scratch(Scratch&& other) noexcept : fDescriptor(std::exchange(other.fDescriptor, -1)) {}

Scratch& Scratch::operator=(Scratch&& other) noexcept {
  std::swap(fDescriptor, other.fDescriptor);
  return *this;
}

std::string Scratch::path() const {
  return "/proc/self/fd/" + std::to_string(fDescriptor);
}

bool Scratch::isEmpty() const {
  struct stat about {};
  return ::fstat(fDescriptor, &about) != 0 || about.st_size == 0;
}

std::string Scratch::tail(std::size_t most) const {
  struct stat about {};
  if (::fstat(fDescriptor, &about) != 0) {
    return {};
  }
  const auto size = static_cast<std::size_t>(about.st_size);
  std::string text(std::min(size, most), '\0');
  const std::size_t from = size - text.size();
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t part = ::pread(fDescriptor, text.data() + done, text.size() - done,
                                 static_cast<off_t>(from + done));
    if (part <= 0) {
      break;
    }
    done += static_cast<std::size_t>(part);
  }
  text.resize(done);
  if (from > 0) {
    const std::size_t line = text.find('\n');
    text.erase(0, line == std::string::npos ? 0 : line + 1);
  }
  return text;
}

} // namespace gk::app
