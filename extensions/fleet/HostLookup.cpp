#include "extensions/fleet/HostLookup.h"

#include <netdb.h>

namespace gk::fleet {

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

  std::string host;
  addrinfo hints{};
  gaicb block{};
};

HostLookup::HostLookup() = default;

HostLookup::~HostLookup() {
  cancel();
}

void HostLookup::start(const std::string& host) {
  cancel();
  fRequest = std::make_unique<Request>(host);
  gaicb* list = &fRequest->block;
  getaddrinfo_a(GAI_NOWAIT, &list, 1, nullptr);
}

std::optional<std::string> HostLookup::poll() {
  const int code = gai_error(&fRequest->block);
  if (code == EAI_INPROGRESS) {
    return std::nullopt;
  }
  fRequest.reset();
  return code == 0 ? std::string() : gai_strerror(code);
}

void HostLookup::cancel() noexcept {
  if (fRequest != nullptr && gai_error(&fRequest->block) == EAI_INPROGRESS &&
      gai_cancel(&fRequest->block) == EAI_NOTCANCELED) {
    // The C library still writes there: it is left to it.
    static_cast<void>(fRequest.release()); // NOLINT(bugprone-unused-return-value)
  }
  fRequest.reset();
}

} // namespace gk::fleet
