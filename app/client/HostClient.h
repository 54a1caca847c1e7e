#pragma once

#include "app/client/HostAddress.h"
#include "app/options/Command.h"

#include <boost/json/value.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace gk::app {

/// How long a host may take to be reached.
constexpr std::chrono::seconds kConnectTime{3};

/// Which host a command is about, and how it answers.
struct ClientOptions {
  std::string host;
  std::string tokenFile;
  bool isJson = false;
};

/// Adds --host, --token-file and --json to a command.
void addClientOptions(const Command& command, ClientOptions& options);

/// A running host, as a client sees it. Every request has a time limit. For one thread.
class HostClient {
public:
  /// Reads the token, if there is one. Raises `AccessError`, `ClientError`.
  explicit HostClient(const ClientOptions& options);
  ~HostClient();
  HostClient(const HostClient&) = delete;
  HostClient& operator=(const HostClient&) = delete;

  /// Each returns the answer's body, and raises `ClientError` when the host refuses or is not
  /// there.
  std::string get(const std::string& target);
  std::string put(const std::string& target, std::string body);
  std::string post(const std::string& target, std::string body);

  boost::json::value getJson(const std::string& target);
  /// The elements of a list in an answer. Raises `ClientError` where there is none: then it is no
  /// host that answers.
  std::vector<boost::json::value> getList(const std::string& target, std::string_view list);
  std::vector<boost::json::value> listOf(const boost::json::value& answer,
                                         std::string_view list) const;

  /// Calls a bound method; `params` is JSON. Returns the result. Raises `ClientError` with the
  /// method's error.
  boost::json::value call(const std::string& method, const std::string& params);

  const HostAddress& address() const noexcept { return fAddress; }
  const std::string& token() const noexcept { return fToken; }

private:
  struct Link;

  std::string xSend(const char* method, const std::string& target, std::string body);

  HostAddress fAddress;
  std::string fToken;
  std::unique_ptr<Link> fLink;
};

/// What matters at a host, worst first, as it tells it; null where an older one does not say.
boost::json::value verdictOf(HostClient& client);

/// A part of a path, with everything that means something there escaped. Slashes stay.
std::string escapedPath(std::string_view text);

/// Members of JSON objects that the host sends; empty, 0 or null where they are missing.
std::string textMember(const boost::json::value& object, std::string_view name);
double numberMember(const boost::json::value& object, std::string_view name);
const boost::json::value& member(const boost::json::value& object, std::string_view name);
/// The elements of an array member.
std::vector<boost::json::value> listMember(const boost::json::value& object, std::string_view name);

/// A value as the host writes it: shortest numbers, strings in quotes.
std::string valueText(const boost::json::value& value);

/// A command's work, with errors told in one line on standard error. Returns the exit code.
int runClient(const std::function<int()>& work);

} // namespace gk::app
