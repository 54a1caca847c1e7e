#include "messages/mqtt/AddressFamilies.h"

#include <algorithm>
#include <memory>
#include <netdb.h>
#include <sys/socket.h>

namespace gk::messages {

void AddressFamilies::lookUp(const std::string& host) {
  fLeft.clear();
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &wanted, &first) == 0) {
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(first, freeaddrinfo);
    for (const addrinfo* one = first; one != nullptr; one = one->ai_next) {
      if (std::ranges::find(fLeft, one->ai_family) == fLeft.end()) {
        fLeft.push_back(one->ai_family);
      }
    }
  }
  if (fLeft.size() < 2) {
    fLeft = {AF_UNSPEC};
  }
  std::stable_partition(fLeft.begin(), fLeft.end(), [this](int one) { return one == fGood; });
}

const char* AddressFamilies::next() {
  fPresent = fLeft.front();
  fLeft.erase(fLeft.begin());
  switch (fPresent) {
  case AF_INET:
    return "0.0.0.0";
  case AF_INET6:
    return "::";
  default:
    return nullptr;
  }
}

} // namespace gk::messages
