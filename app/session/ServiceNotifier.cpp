#include "app/session/ServiceNotifier.h"

#include "gk/GKClock.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace gk::app {

namespace {

/// The module whose loop has to go on.
constexpr const char* kLoopModule = "GKSensors";

/// A whole number in a variable of the environment; 0 when there is none.
std::int64_t numberIn(const char* variable) {
  const char* text = std::getenv(variable);
  return text != nullptr ? std::strtoll(text, nullptr, 10) : 0;
}

} // namespace

boost::shared_ptr<ServiceNotifier> ServiceNotifier::make() {
  const char* address = std::getenv("NOTIFY_SOCKET");
  if (address == nullptr || (*address != '/' && *address != '@')) {
    return nullptr;
  }
  const std::int64_t process = numberIn("WATCHDOG_PID");
  const bool isMeant = process == 0 || process == ::getpid();
  return boost::make_shared<ServiceNotifier>(
      address, std::chrono::microseconds(isMeant ? numberIn("WATCHDOG_USEC") : 0));
}

ServiceNotifier::ServiceNotifier(std::string address, std::chrono::microseconds patience)
    : fAddress(std::move(address)), fPause(patience / 2),
      fSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

ServiceNotifier::~ServiceNotifier() {
  ::close(fSocket);
}

void ServiceNotifier::ready(const GK::GKBroker& broker, const std::string& status) {
  fIsOneLoop = broker.isModulePresent(kLoopModule);
  fLast = std::chrono::steady_clock::now();
  const std::lock_guard lock(fMutex);
  if (!fIsStopping) {
    xSend("READY=1\nSTATUS=" + status);
  }
}

void ServiceNotifier::stopping() {
  const std::lock_guard lock(fMutex);
  fIsStopping = true;
  xSend("STOPPING=1");
}

void ServiceNotifier::onTick(GK::GKMicros, const GK::GKTask& task) {
  if (fPause.count() == 0 || (fIsOneLoop && task.module != kLoopModule)) {
    return;
  }
  const auto now = std::chrono::steady_clock::now();
  if (now - fLast >= fPause) {
    fLast = now;
    xSend("WATCHDOG=1");
  }
}

void ServiceNotifier::xSend(const std::string& text) const {
  sockaddr_un to{};
  to.sun_family = AF_UNIX;
  const std::size_t size = std::min(fAddress.size(), sizeof to.sun_path - 1);
  std::memcpy(to.sun_path, fAddress.data(), size);
  if (to.sun_path[0] == '@') {
    to.sun_path[0] = '\0'; // a name that is in no folder
  }
  // Whoever does not read is not waited for: this may be the loop.
  ::sendto(fSocket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&to),
           static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size));
}

} // namespace gk::app
