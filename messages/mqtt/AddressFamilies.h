#pragma once

#include <string>
#include <vector>

namespace gk::messages {

/// By which families of addresses a host is tried, one after the other.
///
/// libmosquitto tries one address and no other when that does not answer. A name such as
/// "localhost" often has one of each family, and a broker that listens at one of them. An own
/// address chooses the family; the name stays the broker's, which TLS tells it. For one thread.
class AddressFamilies {
public:
  /// Begins with those of a host, in the system's order, but for the one that was of use before,
  /// which comes first. Waits for the name service where `host` is a name.
  void lookUp(const std::string& host);

  bool isLeft() const noexcept { return !fLeft.empty(); }

  /// Goes on to the next one. The address to connect from; null where there is no choice.
  /// Precondition: `isLeft`.
  const char* next();

  /// The present one has been of use.
  void keep() noexcept { fGood = fPresent; }

private:
  std::vector<int> fLeft;
  int fPresent = 0;
  int fGood = 0;
};

} // namespace gk::messages
