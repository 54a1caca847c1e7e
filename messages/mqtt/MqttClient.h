#pragma once

#include "messages/mqtt/AddressFamilies.h"
#include "messages/mqtt/MqttMessage.h"
#include "messages/mqtt/MqttTls.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct mosquitto;
struct mqtt5__property; // NOLINT(bugprone-reserved-identifier): so it is called there
struct mosquitto_message;

namespace gk::messages {

/// Where to connect to, and as whom.
struct MqttOptions {
  std::string host;
  std::uint16_t port = 1883;
  std::optional<MqttTls> tls = std::nullopt;
  /// The broker gives one when it is empty.
  std::string clientId = {};
  /// Empty for none.
  std::string user = {};
  std::string password = {};
  /// After one and a half of it without a word the other side counts as gone.
  std::chrono::seconds keepAlive{15};
  /// What the broker tells when this client goes without a farewell.
  std::optional<MqttMessage> will = std::nullopt;
};

/// What a client hears, always within `MqttClient::wait`. Each may be empty. They may publish,
/// subscribe and ask for the end, but neither connect nor wait.
struct MqttHandlers {
  std::function<void()> onConnected = {};
  /// A connection, or the try to have one, has ended, unless `close` did it. `reason`: the broker's
  /// code, or 0 where it gave none; `text` tells people why.
  std::function<void(int reason, const std::string& text)> onClosed = {};
  std::function<void(const MqttMessage& message)> onMessage = {};
  /// The broker has taken the message that `publish` gave this number (at QoS 0: it is on its way),
  /// or refuses it: reasons from `kMqttRefused` on.
  std::function<void(int id, int reason)> onPublished = {};
  /// The broker's answer to a subscription, a reason for each of its filters.
  std::function<void(int id, const std::vector<int>& reasons)> onSubscribed = {};
};

/// A client of an MQTT 5 broker, a thin cover over libmosquitto.
///
/// Each connection begins with nothing: the broker keeps no session for it, and what was on its way
/// when one ended is not sent again. Whoever wants that asks `onPublished`. Nothing is sent, or
/// kept to be sent later, while there is no connection.
///
/// For one thread, which calls `wait` again and again; `wake` may be called from any.
class MqttClient {
public:
  MqttClient(MqttOptions options, MqttHandlers handlers);
  ~MqttClient();
  MqttClient(const MqttClient&) = delete;
  MqttClient& operator=(const MqttClient&) = delete;

  /// Begins to connect, after the end of the connection that there may be. A host that has
  /// addresses of IPv6 and of IPv4 is tried by both, one after the other. How it goes tell
  /// `onConnected` and `onClosed`. Does not wait for the network, but for the name service where
  /// `host` is a name. Raises `MqttError` when it cannot be begun: a file is of no use, there is no
  /// such host.
  void connect();

  bool isConnecting() const noexcept { return fState == State::Connecting || fIsNextDue; }
  bool isConnected() const noexcept { return fState == State::Connected; }

  /// Returns the number by which `onPublished` names the message; nothing when there is no
  /// connection. Raises `MqttError` when the message can never be sent, such as one larger than the
  /// broker takes.
  std::optional<int> publish(const MqttMessage& message);

  /// Returns the number for `onSubscribed`; nothing when there is no connection.
  std::optional<int> subscribe(const std::string& filter, int qos);

  /// Does what is to be done, and waits until something happens, until `wake`, or so long.
  void wait(std::chrono::milliseconds longest);

  /// Ends a `wait`, or the next one. Any thread.
  void wake() const noexcept;

  /// Says farewell to the broker, which leaves the will unsaid, and returns when that is written,
  /// at the latest after so long.
  void close(std::chrono::milliseconds longest);
  /// Ends the connection without a word.
  void drop() noexcept;

private:
  enum class State : unsigned char { Idle, Connecting, Connected };
  struct Callbacks;

  void xMake();
  /// Begins with the next family that can be begun with. Raises `MqttError` when none is left.
  void xConnect();
  /// The same within `wait`, where the handlers are told.
  void xTryNext();
  void xPoll(std::chrono::milliseconds longest);
  void xRead();
  void xEnded(int code);
  std::string xEndText(int code) const;
  void xOnConnected(int reason);
  void xOnMessage(const mosquitto_message& message, const mqtt5__property* properties) const;

  const MqttOptions fOptions;
  const MqttHandlers fHandlers;
  int fBell;
  std::unique_ptr<MqttTlsContext> fTls;
  mosquitto* fMosquitto = nullptr;
  State fState = State::Idle;
  AddressFamilies fFamilies;
  /// The broker has not been reached by one of them: the next is tried when nobody is calling.
  bool fIsNextDue = false;
  /// Why the broker did not accept the connection, if it said so.
  int fRefusal = 0;
  /// Of the socket, when it was seen last.
  int fSocketError = 0;
};

} // namespace gk::messages
