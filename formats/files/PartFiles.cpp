#include "formats/files/PartFiles.h"

#include <climits>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <unistd.h>

namespace gk::formats {

namespace {

/// One file. A handler that comes in between sees it whole or not at all.
struct Entry {
  std::atomic<bool> isSet{false};
  std::array<char, PATH_MAX> path{};
};

/// A run has a handful of outputs.
constexpr std::size_t kMost = 32;

std::array<Entry, kMost> gFiles;
std::mutex gMutex;

} // namespace

void rememberPartFile(const std::string& path) noexcept {
  const std::lock_guard lock(gMutex);
  for (Entry& entry : gFiles) {
    if (!entry.isSet.load(std::memory_order_relaxed) && path.size() < entry.path.size()) {
      std::memcpy(entry.path.data(), path.c_str(), path.size() + 1);
      entry.isSet.store(true, std::memory_order_release);
      return;
    }
  }
}

void forgetPartFile(const std::string& path) noexcept {
  const std::lock_guard lock(gMutex);
  for (Entry& entry : gFiles) {
    if (entry.isSet.load(std::memory_order_relaxed) && path == entry.path.data()) {
      entry.isSet.store(false, std::memory_order_relaxed);
      return;
    }
  }
}

void removePartFiles() noexcept {
  for (Entry& entry : gFiles) {
    if (entry.isSet.load(std::memory_order_acquire)) {
      ::unlink(entry.path.data());
    }
  }
  // Folders, now that nothing is left in them.
  for (Entry& entry : gFiles) {
    if (entry.isSet.load(std::memory_order_acquire)) {
      ::rmdir(entry.path.data());
    }
  }
}

} // namespace gk::formats
