#include "app/test/Scratch.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace gk::app {

namespace {

/// Where a file without a name can be opened once more.
constexpr const char* kDescriptors = "/proc/self/fd";

} // namespace

Scratch::Scratch(Place place) {
  if (::access(kDescriptors, X_OK) != 0) {
    xOpenWithName();
  } else if (place == Place::Disk) {
    std::error_code error;
    const std::string folder = std::filesystem::temp_directory_path(error);
    constexpr int mine = 0600;
    fDescriptor = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mine);
  }
  // Not every file system has files without names.
  if (fDescriptor < 0 && fName.empty()) {
    fDescriptor = ::memfd_create("gk-test", MFD_CLOEXEC);
  }
  if (fDescriptor < 0) {
    throw std::system_error(errno, std::generic_category(), "no room for what tests write");
  }
}

void Scratch::xOpenWithName() {
  std::error_code error;
  fName = std::filesystem::temp_directory_path(error) / "gk-test-XXXXXX";
  fDescriptor = ::mkostemp(fName.data(), O_CLOEXEC);
  fOwner = ::getpid();
}

Scratch::~Scratch() {
  if (fDescriptor >= 0) {
    ::close(fDescriptor);
  }
  if (!fName.empty() && fOwner == ::getpid()) {
    ::unlink(fName.c_str());
  }
}

Scratch::Scratch(Scratch&& other) noexcept
    : fDescriptor(std::exchange(other.fDescriptor, -1)), fName(std::exchange(other.fName, {})),
      fOwner(other.fOwner) {}

Scratch& Scratch::operator=(Scratch&& other) noexcept {
  std::swap(fDescriptor, other.fDescriptor);
  std::swap(fName, other.fName);
  std::swap(fOwner, other.fOwner);
  return *this;
}

std::string Scratch::path() const {
  return fName.empty() ? std::string(kDescriptors) + "/" + std::to_string(fDescriptor) : fName;
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
