#include "extensions/fleet/HostLookup.h"

#include <netdb.h>

#ifdef __has_feature
#if __has_feature(thread_sanitizer)
#define GK_LOOKS_UP_AT_ONCE 1
#endif
#endif
#ifdef __SANITIZE_THREAD__
#define GK_LOOKS_UP_AT_ONCE 1
#endif

namespace gk::fleet {

namespace {

#ifdef GK_LOOKS_UP_AT_ONCE
/// ThreadSanitizer does not survive threads that the C library makes for itself.
constexpr bool kIsWaiting = true;
#else
constexpr bool kIsWaiting = false;
#endif

} // namespace

struct HostLookup::Request {
  explicit Request(std::string name) : host(std::move(name)) {
    hints.ai_socktype = SOCK_STREAM;
    block.ar_name = host.c_str();
    block.ar_request = &hints;
  }
  ~Request() {
    if (block.ar_result != nullptr) {
      freeaddrinfo(block.ar_result);
    }
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  /// Asks nobody unless it has to: an address needs no answer.
  bool isAnswered() {
    addrinfo wanted = hints;
    wanted.ai_flags = kIsWaiting ? 0 : AI_NUMERICHOST;
    addrinfo* found = nullptr;
    code = getaddrinfo(host.c_str(), nullptr, &wanted, &found);
    if (code == 0) {
      freeaddrinfo(found);
    }
    return code == 0 || kIsWaiting;
  }
  bool isInProgress() { return isAsked && gai_error(&block) == EAI_INPROGRESS; }

  std::string host;
  addrinfo hints{};
  gaicb block{};
  bool isAsked = false;
  /// Where nobody was asked.
  int code = 0;
};

HostLookup::HostLookup() = default;

HostLookup::~HostLookup() {
  cancel();
}

void HostLookup::start(const std::string& host) {
  cancel();
  fRequest = std::make_unique<Request>(host);
  if (!fRequest->isAnswered()) {
    fRequest->isAsked = true;
    gaicb* list = &fRequest->block;
    getaddrinfo_a(GAI_NOWAIT, &list, 1, nullptr);
  }
}

std::optional<std::string> HostLookup::poll() {
  if (fRequest->isInProgress()) {
    return std::nullopt;
  }
  const int code = fRequest->isAsked ? gai_error(&fRequest->block) : fRequest->code;
  fRequest.reset();
  return code == 0 ? std::string() : gai_strerror(code);
}

void HostLookup::cancel() noexcept {
  if (fRequest != nullptr && fRequest->isInProgress() &&
      gai_cancel(&fRequest->block) == EAI_NOTCANCELED) {
    // The C library still writes there: it is left to it.
    static_cast<void>(fRequest.release()); // NOLINT(bugprone-unused-return-value)
  }
  fRequest.reset();
}

} // namespace gk::fleet
