#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Who may talk to the gateway.
namespace gk::gateway {

/// The gateway cannot be started as asked; `what()` names the option and the reason, on one line.
class AccessError : public std::runtime_error {
public:
  explicit AccessError(const std::string& what, bool isAddressTaken = false)
      : std::runtime_error(what), fIsAddressTaken(isAddressTaken) {}

  /// Somebody else listens at this address.
  bool isAddressTaken() const noexcept { return fIsAddressTaken; }

private:
  bool fIsAddressTaken;
};

/// Where to listen.
struct Address {
  /// An IP address without brackets.
  std::string host;
  /// 0 for any free one.
  std::uint16_t port = 0;

  bool isLoopback() const;
};

/// Reads "127.0.0.1:8090" or "[::1]:8090"; "localhost" is 127.0.0.1. Raises `AccessError`.
Address parseAddress(std::string_view text);

/// Reads the token that a file holds: its first line. Raises `AccessError` when the file cannot be
/// read, when others than its owner may read or write it (it must have mode 0600 or less), or when
/// the token is shorter than `kMinTokenLength`.
std::string readToken(const std::string& path);

/// Letters and digits that make 128 bits in base 64.
constexpr std::size_t kMinTokenLength = 22;

/// Whether two secrets are the same. Takes the same time wherever they differ.
bool isSameSecret(std::string_view left, std::string_view right) noexcept;

/// What a request says about where it comes from.
struct Credentials {
  /// Headers, empty when absent.
  std::string_view host;
  std::optional<std::string_view> origin;
  std::string_view authorization;
  std::string_view cookie;
  /// The query's "ticket".
  std::string_view ticket;
};

struct AccessOptions {
  Address address;
  /// Empty for none: then everybody on this machine may do everything.
  std::string token;
  /// Further names under which the host is known, without port.
  std::vector<std::string> hosts;
  /// Further origins whose pages may connect, such as "https://viewer.example".
  std::vector<std::string> origins;
};

/// Decides about requests. Any thread.
class Access {
public:
  static constexpr std::size_t kMaxSessions = 64;
  static constexpr std::chrono::seconds kTicketLife{30};
  /// The cookie of a page that has logged in.
  static constexpr std::string_view kCookie = "gk_session";

  /// Raises `AccessError` when the address is not the machine's own and there is no token.
  explicit Access(AccessOptions options);

  /// The port that was given, once it is known.
  void setPort(std::uint16_t port) { fOptions.address.port = port; }

  /// Whether the request was meant for this host: keeps out names that others have pointed at our
  /// address.
  bool isHostAllowed(std::string_view host) const;

  /// Whether a page of this origin may use the gateway. Programs send none.
  bool isOriginAllowed(const std::optional<std::string_view>& origin) const;

  /// Whether a token is asked for and the request has neither it nor a session nor a ticket. A
  /// ticket is used up by this.
  bool isAuthorised(const Credentials& credentials);

  bool needsToken() const noexcept { return !fOptions.token.empty(); }
  bool isToken(std::string_view token) const;

  /// A new session's cookie value. Beyond `kMaxSessions` the oldest one ends.
  std::string openSession();
  /// A ticket for one request within `kTicketLife`, for clients that cannot send headers.
  std::string openTicket();

private:
  using Clock = std::chrono::steady_clock;
  struct Ticket {
    std::string secret;
    Clock::time_point end;
  };

  bool xIsSession(std::string_view cookies);
  bool xUseTicket(std::string_view ticket);

  AccessOptions fOptions;
  std::mutex fMutex;
  std::deque<std::string> fSessions;
  std::deque<Ticket> fTickets;
};

} // namespace gk::gateway
