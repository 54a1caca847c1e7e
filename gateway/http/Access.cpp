#include "gateway/http/Access.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace gk::gateway {

namespace {

constexpr std::string_view kLocalNames[] = {"localhost", "127.0.0.1", "[::1]"};
constexpr std::string_view kBearer = "Bearer ";
constexpr std::uint16_t kHttpPort = 80;

bool isSameText(std::string_view left, std::string_view right) {
  return std::ranges::equal(left, right, [](unsigned char l, unsigned char r) {
    return std::tolower(l) == std::tolower(r);
  });
}

/// 128 random bits in hexadecimal.
std::string makeSecret() {
  constexpr std::string_view hex = "0123456789abcdef";
  std::array<unsigned char, 16> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw AccessError("no random numbers");
  }
  std::string text;
  for (const unsigned char byte : bytes) {
    text += hex[byte >> 4U];
    text += hex[byte & 0xFU];
  }
  return text;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view space = " \t\r\n";
  const std::size_t first = text.find_first_not_of(space);
  return first == std::string_view::npos
             ? std::string_view()
             : text.substr(first, text.find_last_not_of(space) - first + 1);
}

/// The start of a file, as much as a token may have.
std::string readStart(int file) {
  std::array<char, 4096> buffer{};
  const ssize_t count = read(file, buffer.data(), buffer.size());
  return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

} // namespace

bool Address::isLoopback() const {
  return host == "::1" || host.starts_with("127.");
}

Address parseAddress(std::string_view text) {
  const auto fail = [text] {
    throw AccessError("--listen: " + std::string(text) +
                      " is no address; 127.0.0.1:8090 or [::1]:8090 would be one");
  };
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) {
    fail();
  }
  Address address;
  std::string_view host = text.substr(0, colon);
  const std::string_view port = text.substr(colon + 1);
  const auto [end, error] = std::from_chars(port.begin(), port.end(), address.port);
  if (error != std::errc() || end != port.end()) {
    fail();
  }
  int family = AF_INET;
  if (host.starts_with('[') && host.ends_with(']')) {
    host = host.substr(1, host.size() - 2);
    family = AF_INET6;
  }
  address.host = host == "localhost" ? "127.0.0.1" : std::string(host);
  in6_addr parsed{};
  if (inet_pton(family, address.host.c_str(), &parsed) != 1) {
    fail();
  }
  return address;
}

namespace {

/// The rights that others must not have. What a service manager hands to a service shows the right
/// of the service itself as that of a group.
mode_t othersIn(const std::string& path) {
  const char* credentials = std::getenv("CREDENTIALS_DIRECTORY");
  const bool isHandedOver = credentials != nullptr && *credentials == '/' &&
                            path.starts_with(credentials + std::string("/"));
  return isHandedOver ? S_IWGRP | S_IXGRP | S_IRWXO : S_IRWXG | S_IRWXO;
}

} // namespace

std::string readToken(const std::string& path) {
  const auto fail = [&path](const std::string& why) {
    throw AccessError("--token-file: " + path + ": " + why);
  };
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) {
    fail(std::strerror(errno));
  }
  // Of the open file, not of the name: nothing can be put in its place between check and use.
  struct stat status {};
  const bool isKnown = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  const std::string text = isKnown ? readStart(file) : std::string();
  close(file);
  if (!isKnown) {
    fail("no regular file");
  }
  if ((status.st_mode & othersIn(path)) != 0) {
    fail("others may read or write it; chmod 600 " + path + " mends that");
  }
  std::string token(trimmed(std::string_view(text).substr(0, text.find('\n'))));
  if (token.size() < kMinTokenLength) {
    fail("a token has at least " + std::to_string(kMinTokenLength) + " characters");
  }
  return token;
}

bool isSameSecret(std::string_view left, std::string_view right) noexcept {
  // Only the length shows in the time that this takes.
  volatile unsigned char difference = left.size() == right.size() ? 0 : 1;
  for (std::size_t i = 0; i < left.size() && !right.empty(); ++i) {
    difference = static_cast<unsigned char>(difference |
                                            (static_cast<unsigned char>(left[i]) ^
                                             static_cast<unsigned char>(right[i % right.size()])));
  }
  return difference == 0;
}

Access::Access(AccessOptions options) : fOptions(std::move(options)) {
  if (!fOptions.address.isLoopback() && fOptions.token.empty()) {
    throw AccessError("--listen: " + fOptions.address.host +
                      " can be reached by others: that needs --token-file");
  }
}

bool Access::isHostAllowed(std::string_view host) const {
  std::string_view name = host;
  std::uint16_t port = kHttpPort;
  const std::size_t colon = host.rfind(':');
  if (colon != std::string_view::npos && !host.ends_with(']')) {
    name = host.substr(0, colon);
    const std::string_view digits = host.substr(colon + 1);
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), port);
    if (error != std::errc() || end != digits.end()) {
      return false;
    }
  }
  if (port != fOptions.address.port) {
    return false;
  }
  const auto isName = [name](std::string_view one) { return isSameText(one, name); };
  const std::string& own = fOptions.address.host;
  return std::ranges::any_of(kLocalNames, isName) ||
         isName(own.find(':') == std::string::npos ? own : "[" + own + "]") ||
         std::ranges::any_of(fOptions.hosts, isName);
}

bool Access::isOriginAllowed(const std::optional<std::string_view>& origin) const {
  if (!origin) {
    return true;
  }
  if (std::ranges::find(fOptions.origins, *origin) != fOptions.origins.end()) {
    return true;
  }
  constexpr std::string_view scheme = "http://";
  return origin->starts_with(scheme) && isHostAllowed(origin->substr(scheme.size()));
}

bool Access::isToken(std::string_view token) const {
  return needsToken() && isSameSecret(token, fOptions.token);
}

bool Access::isAuthorised(const Credentials& credentials) {
  if (!needsToken()) {
    return true;
  }
  const std::string_view authorization = credentials.authorization;
  if (authorization.size() > kBearer.size() &&
      isSameText(authorization.substr(0, kBearer.size()), kBearer)) {
    return isToken(trimmed(authorization.substr(kBearer.size())));
  }
  return xIsSession(credentials.cookie) || xUseTicket(credentials.ticket);
}

std::string Access::openSession() {
  const std::lock_guard lock(fMutex);
  if (fSessions.size() >= kMaxSessions) {
    fSessions.pop_front();
  }
  return fSessions.emplace_back(makeSecret());
}

std::string Access::openTicket() {
  const std::lock_guard lock(fMutex);
  if (fTickets.size() >= kMaxSessions) {
    fTickets.pop_front();
  }
  fTickets.push_back({makeSecret(), Clock::now() + kTicketLife});
  return fTickets.back().secret;
}

bool Access::xIsSession(std::string_view cookies) {
  while (!cookies.empty()) {
    const std::size_t end = std::min(cookies.find(';'), cookies.size());
    const std::string_view cookie = trimmed(cookies.substr(0, end));
    cookies.remove_prefix(std::min(end + 1, cookies.size()));
    if (cookie.starts_with(kCookie) && cookie.substr(kCookie.size()).starts_with('=')) {
      const std::string_view value = cookie.substr(kCookie.size() + 1);
      const std::lock_guard lock(fMutex);
      return std::ranges::any_of(
          fSessions, [value](const std::string& session) { return isSameSecret(value, session); });
    }
  }
  return false;
}

bool Access::xUseTicket(std::string_view ticket) {
  const std::lock_guard lock(fMutex);
  const Clock::time_point now = Clock::now();
  const auto found = std::ranges::find_if(fTickets, [&](const Ticket& known) {
    return now < known.end && isSameSecret(ticket, known.secret);
  });
  if (found == fTickets.end()) {
    return false;
  }
  fTickets.erase(found);
  return true;
}

} // namespace gk::gateway
