#include "platform/time/GKQuickMutex.h"

#include <cerrno>
#include <exception>
#include <pthread.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace GK {

namespace {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

/// The calling thread as the operating system knows it; 0 until it has been asked.
thread_local std::uint32_t tThread = 0;

std::uint32_t askForThread() noexcept {
  // After a fork the thread goes on in the new process, and is another one there.
  static const int isWatched [[maybe_unused]] =
      pthread_atfork(nullptr, nullptr, [] { tThread = 0; });
  return static_cast<std::uint32_t>(gettid());
}

long futex(std::atomic<std::uint32_t>& word, int operation) noexcept {
  return syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, 0, nullptr, nullptr, 0);
}

} // namespace

std::uint32_t GKQuickMutex::thisThread() noexcept {
  std::uint32_t& thread = tThread;
  if (thread == 0) {
    thread = askForThread();
  }
  return thread;
}

void GKQuickMutex::xWait() {
  while (futex(fHolder, FUTEX_LOCK_PI) != 0) {
    if (errno != EINTR && errno != EAGAIN) {
      throw std::system_error(errno, std::generic_category(), "GKQuickMutex");
    }
  }
  // The system has put this thread into the word. What the former holder did is visible anyway;
  // this says so to who looks at the program only.
  fHolder.load(std::memory_order_acquire);
}

void GKQuickMutex::xHandOver() noexcept {
  fHolder.fetch_or(0, std::memory_order_release);
  if (futex(fHolder, FUTEX_UNLOCK_PI) != 0) {
    std::terminate();
  }
}

} // namespace GK
