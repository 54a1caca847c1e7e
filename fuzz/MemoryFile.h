#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace gk::fuzz {

/// A file that lies in memory and has a path, for readers that open files. For one thread.
class MemoryFile {
public:
  MemoryFile() : fDescriptor(memfd_create("fuzz", MFD_CLOEXEC)) {}
  ~MemoryFile() { close(fDescriptor); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  /// Replaces the content. False when the system refuses.
  bool write(std::span<const std::uint8_t> bytes) const {
    return ftruncate(fDescriptor, 0) == 0 &&
           pwrite(fDescriptor, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
  }

  std::string path() const { return "/proc/self/fd/" + std::to_string(fDescriptor); }

private:
  int fDescriptor;
};

} // namespace gk::fuzz
