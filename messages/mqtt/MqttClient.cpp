#include "messages/mqtt/MqttClient.h"

#include "messages/mqtt/SocketError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace gk::messages {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// While TLS shakes hands libmosquitto wants to write all the time, but only gets to it when the
/// other side has answered: it is asked this often.
constexpr milliseconds kHandshakeTurn{10};
/// libmosquitto looks at the keep-alive when it is asked to.
constexpr milliseconds kHousekeeping{1000};

/// libmosquitto's library state, for as long as the process uses it.
class Library {
public:
  Library() { mosquitto_lib_init(); }
  ~Library() { mosquitto_lib_cleanup(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  static void use() { static const Library library; }
};

class Properties {
public:
  Properties() = default;
  ~Properties() { mosquitto_property_free_all(&fFirst); }
  Properties(const Properties&) = delete;
  Properties& operator=(const Properties&) = delete;

  /// Raises `MqttError` when a text is none that MQTT can carry.
  static void check(int code, const char* what) {
    if (code != MOSQ_ERR_SUCCESS) {
      throw MqttError(std::string("the ") + what + " cannot be sent: " + mosquitto_strerror(code));
    }
  }

  void fill(const MqttMessage& message) {
    if (!message.responseTopic.empty()) {
      check(mosquitto_property_add_string(&fFirst, MQTT_PROP_RESPONSE_TOPIC,
                                          message.responseTopic.c_str()),
            "response topic");
    }
    if (message.correlation) {
      const std::size_t size = std::min<std::size_t>(message.correlation->size(), UINT16_MAX);
      check(mosquitto_property_add_binary(&fFirst, MQTT_PROP_CORRELATION_DATA,
                                          message.correlation->data(),
                                          static_cast<std::uint16_t>(size)),
            "correlation data");
    }
    if (message.expiry) {
      check(
          mosquitto_property_add_int32(&fFirst, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, *message.expiry),
          "message expiry");
    }
  }

  const mosquitto_property* get() const noexcept { return fFirst; }
  /// Whoever is given them owns them.
  mosquitto_property* release() noexcept { return std::exchange(fFirst, nullptr); }

private:
  mosquitto_property* fFirst = nullptr;
};

} // namespace

/// What libmosquitto calls, with the client as its user data.
struct MqttClient::Callbacks {
  static MqttClient& self(void* user) { return *static_cast<MqttClient*>(user); }

  static void onConnect(mosquitto* /*mosquitto*/, void* user, int reason, int /*flags*/,
                        const mosquitto_property* /*properties*/) {
    self(user).xOnConnected(reason);
  }
  static void onDisconnect(mosquitto* /*mosquitto*/, void* user, int code,
                           const mosquitto_property* /*properties*/) {
    self(user).xEnded(code);
  }
  static void onMessage(mosquitto* /*mosquitto*/, void* user, const mosquitto_message* message,
                        const mosquitto_property* properties) {
    self(user).xOnMessage(*message, properties);
  }
  static void onPublish(mosquitto* /*mosquitto*/, void* user, int id, int reason,
                        const mosquitto_property* /*properties*/) {
    const MqttClient& client = self(user);
    if (client.fHandlers.onPublished) {
      client.fHandlers.onPublished(id, reason);
    }
  }
  static void onSubscribe(mosquitto* /*mosquitto*/, void* user, int id, int count,
                          const int* granted, const mosquitto_property* /*properties*/) {
    const MqttClient& client = self(user);
    if (client.fHandlers.onSubscribed) {
      client.fHandlers.onSubscribed(id, std::vector<int>(granted, granted + count));
    }
  }
};

MqttClient::MqttClient(MqttOptions options, MqttHandlers handlers)
    : fOptions(std::move(options)), fHandlers(std::move(handlers)),
      fBell(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (fBell < 0) {
    throw MqttError("no descriptor is left");
  }
  Library::use();
}

MqttClient::~MqttClient() {
  drop();
  ::close(fBell);
}

void MqttClient::xMake() {
  drop();
  fRefusal = 0;
  fSocketError = 0;
  fTls.reset();
  const char* id = fOptions.clientId.empty() ? nullptr : fOptions.clientId.c_str();
  fMosquitto = mosquitto_new(id, true, this);
  if (fMosquitto == nullptr) {
    throw MqttError(std::string("no client can be made: ") + std::strerror(errno));
  }
  mosquitto_int_option(fMosquitto, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(fMosquitto, MOSQ_OPT_TCP_NODELAY, 1);
  // More than any broker asks for: what may be on its way is the broker's to say.
  mosquitto_int_option(fMosquitto, MOSQ_OPT_SEND_MAXIMUM, UINT16_MAX);
  mosquitto_connect_v5_callback_set(fMosquitto, Callbacks::onConnect);
  mosquitto_disconnect_v5_callback_set(fMosquitto, Callbacks::onDisconnect);
  mosquitto_message_v5_callback_set(fMosquitto, Callbacks::onMessage);
  mosquitto_publish_v5_callback_set(fMosquitto, Callbacks::onPublish);
  mosquitto_subscribe_v5_callback_set(fMosquitto, Callbacks::onSubscribe);
  if (!fOptions.user.empty()) {
    Properties::check(
        mosquitto_username_pw_set(fMosquitto, fOptions.user.c_str(),
                                  fOptions.password.empty() ? nullptr : fOptions.password.c_str()),
        "user's name");
  }
  if (const auto& will = fOptions.will) {
    Properties properties;
    properties.fill(*will);
    Properties::check(mosquitto_will_set_v5(
                          fMosquitto, will->topic.c_str(), static_cast<int>(will->payload.size()),
                          will->payload.data(), will->qos, will->isRetained, properties.release()),
                      "will");
  }
  if (fOptions.tls) {
    fTls = std::make_unique<MqttTlsContext>(*fOptions.tls, fOptions.host);
    mosquitto_int_option(fMosquitto, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
    mosquitto_void_option(fMosquitto, MOSQ_OPT_SSL_CTX, fTls->get());
  }
}

void MqttClient::connect() {
  fFamilies.lookUp(fOptions.host);
  xConnect();
}

void MqttClient::xConnect() {
  int code = MOSQ_ERR_SUCCESS;
  do {
    xMake();
    fState = State::Connecting;
    errno = 0;
    code = mosquitto_connect_bind_async(fMosquitto, fOptions.host.c_str(), fOptions.port,
                                        static_cast<int>(fOptions.keepAlive.count()),
                                        fFamilies.next());
  } while (code != MOSQ_ERR_SUCCESS && fFamilies.isLeft());
  if (code != MOSQ_ERR_SUCCESS) {
    const std::string text = xEndText(code);
    drop();
    throw MqttError(text);
  }
}

void MqttClient::xTryNext() {
  try {
    xConnect();
  } catch (const MqttError& error) {
    if (fHandlers.onClosed) {
      fHandlers.onClosed(0, error.what());
    }
  }
}

std::optional<int> MqttClient::publish(const MqttMessage& message) {
  if (!isConnected()) {
    return std::nullopt;
  }
  Properties properties;
  properties.fill(message);
  int id = 0;
  const int code = mosquitto_publish_v5(
      fMosquitto, &id, message.topic.c_str(), static_cast<int>(message.payload.size()),
      message.payload.data(), message.qos, message.isRetained, properties.get());
  switch (code) {
  case MOSQ_ERR_SUCCESS:
    return id;
  case MOSQ_ERR_INVAL:
  case MOSQ_ERR_PAYLOAD_SIZE:
  case MOSQ_ERR_OVERSIZE_PACKET:
  case MOSQ_ERR_MALFORMED_UTF8:
  case MOSQ_ERR_QOS_NOT_SUPPORTED:
  case MOSQ_ERR_RETAIN_NOT_SUPPORTED:
    throw MqttError(mosquitto_strerror(code));
  default:
    return std::nullopt;
  }
}

std::optional<int> MqttClient::subscribe(const std::string& filter, int qos) {
  if (!isConnected()) {
    return std::nullopt;
  }
  int id = 0;
  if (mosquitto_subscribe_v5(fMosquitto, &id, filter.c_str(), qos, 0, nullptr) !=
      MOSQ_ERR_SUCCESS) {
    return std::nullopt;
  }
  return id;
}

void MqttClient::wait(milliseconds longest) {
  xPoll(std::clamp(longest, milliseconds(0), kHousekeeping));
  if (std::exchange(fIsNextDue, false)) {
    xTryNext();
  } else if (fState == State::Idle && fMosquitto != nullptr) {
    drop(); // outside of its own callbacks
  }
}

void MqttClient::xPoll(milliseconds longest) {
  const int socket = fMosquitto == nullptr ? -1 : mosquitto_socket(fMosquitto);
  std::array<pollfd, 2> waiting{{{fBell, POLLIN, 0}, {socket, POLLIN, 0}}};
  const bool isShakingHands = fTls != nullptr && fState == State::Connecting;
  if (isShakingHands) {
    longest = std::min(longest, kHandshakeTurn);
  } else if (socket >= 0 && mosquitto_want_write(fMosquitto)) {
    waiting[1].events |= POLLOUT;
  }
  const int ready =
      poll(waiting.data(), socket >= 0 ? waiting.size() : 1, static_cast<int>(longest.count()));
  if (ready > 0 && waiting[0].revents != 0) {
    std::uint64_t rings = 0;
    [[maybe_unused]] const ssize_t taken = read(fBell, &rings, sizeof rings);
  }
  if (socket < 0) {
    return;
  }
  if (ready > 0 && (waiting[1].revents & (POLLERR | POLLHUP)) != 0) {
    fSocketError = socketError(socket);
    if (fState == State::Connecting && isUnreached(fSocketError)) {
      xEnded(MOSQ_ERR_ERRNO);
      return;
    }
  }
  if (ready > 0 && (waiting[1].revents & ~POLLOUT) != 0) {
    xRead();
  }
  if (fState != State::Idle && mosquitto_want_write(fMosquitto)) {
    const int code = mosquitto_loop_write(fMosquitto, 1);
    if (code != MOSQ_ERR_SUCCESS) {
      xEnded(code);
    }
  }
  if (fState != State::Idle) {
    const int code = mosquitto_loop_misc(fMosquitto);
    if (code != MOSQ_ERR_SUCCESS) {
      xEnded(code);
    }
  }
}

void MqttClient::xRead() {
  bool isMore = true;
  while (isMore && fState != State::Idle) {
    const int code = mosquitto_loop_read(fMosquitto, 1);
    if (code != MOSQ_ERR_SUCCESS) {
      xEnded(code);
      return;
    }
    // What TLS has taken from the socket already, `poll` does not know about.
    const auto* ssl = static_cast<const SSL*>(mosquitto_ssl_get(fMosquitto));
    isMore = ssl != nullptr && SSL_pending(ssl) > 0;
  }
}

void MqttClient::wake() const noexcept {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(fBell, &one, sizeof one);
}

void MqttClient::close(milliseconds longest) {
  if (isConnected()) {
    const auto end = steady_clock::now() + longest;
    fState = State::Idle; // nobody is told of this end
    mosquitto_disconnect_v5(fMosquitto, 0, nullptr);
    while (mosquitto_socket(fMosquitto) >= 0 && mosquitto_want_write(fMosquitto)) {
      const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
      pollfd waiting{mosquitto_socket(fMosquitto), POLLOUT, 0};
      if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0 ||
          mosquitto_loop_write(fMosquitto, 1) != MOSQ_ERR_SUCCESS) {
        break;
      }
    }
  }
  drop();
}

void MqttClient::drop() noexcept {
  fState = State::Idle;
  fIsNextDue = false;
  if (fMosquitto != nullptr) {
    mosquitto_destroy(std::exchange(fMosquitto, nullptr));
  }
}

void MqttClient::xEnded(int code) {
  if (fState == State::Idle) {
    return;
  }
  const bool isSaid = fRefusal != 0 || (fTls != nullptr && !fTls->problem().empty());
  if (fState == State::Connecting && fFamilies.isLeft() && !isSaid) {
    fState = State::Idle;
    fIsNextDue = true; // not from here, where libmosquitto may be calling
    return;
  }
  const std::string text = xEndText(code);
  fState = State::Idle;
  if (fHandlers.onClosed) {
    const int reason = fRefusal != 0 ? fRefusal : code >= kMqttRefused ? code : 0;
    fHandlers.onClosed(reason, text);
  }
}

std::string MqttClient::xEndText(int code) const {
  if (fRefusal != 0) {
    return "the broker refuses the connection: " + mqttReasonText(fRefusal);
  }
  if (fTls != nullptr && !fTls->problem().empty()) {
    return fTls->problem();
  }
  if (code >= kMqttRefused) {
    return "the broker ends the connection: " + mqttReasonText(code);
  }
  const int error = fSocketError != 0 ? fSocketError : code == MOSQ_ERR_ERRNO ? errno : 0;
  const bool isShakingHands = fTls != nullptr && fState == State::Connecting;
  if (code == MOSQ_ERR_TLS ||
      (isShakingHands && (error == ECONNRESET || error == EPIPE || error == EPROTO ||
                          (error == 0 && code == MOSQ_ERR_CONN_LOST)))) {
    return "the TLS handshake failed: is this a TLS port, and does the broker want a certificate "
           "of "
           "this client?";
  }
  if (error != 0) {
    return std::generic_category().message(error);
  }
  switch (code) {
  case MOSQ_ERR_EAI:
    return "there is no host of this name, or the name service does not answer";
  case MOSQ_ERR_KEEPALIVE:
    return "the broker does not answer";
  case MOSQ_ERR_PROTOCOL:
    return "the broker does not speak MQTT 5";
  default:
    return "the connection was lost";
  }
}

void MqttClient::xOnConnected(int reason) {
  if (reason != 0) {
    fRefusal = reason;
    return;
  }
  fState = State::Connected;
  fFamilies.keep();
  if (fHandlers.onConnected) {
    fHandlers.onConnected();
  }
}

void MqttClient::xOnMessage(const mosquitto_message& message,
                            const mosquitto_property* properties) const {
  if (!fHandlers.onMessage) {
    return;
  }
  MqttMessage told{message.topic,
                   std::string(static_cast<const char*>(message.payload),
                               static_cast<std::size_t>(message.payloadlen)),
                   message.qos, message.retain};
  if (char* topic = nullptr; mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC,
                                                            &topic, false) != nullptr) {
    told.responseTopic = topic;
    std::free(topic); // NOLINT(cppcoreguidelines-no-malloc): libmosquitto's
  }
  void* bytes = nullptr;
  std::uint16_t size = 0;
  if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &bytes, &size,
                                     false) != nullptr) {
    told.correlation = std::string(static_cast<const char*>(bytes), size);
    std::free(bytes); // NOLINT(cppcoreguidelines-no-malloc): libmosquitto's
  }
  if (std::uint32_t seconds = 0;
      mosquitto_property_read_int32(properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &seconds,
                                    false) != nullptr) {
    told.expiry = seconds;
  }
  fHandlers.onMessage(told);
}

std::string mqttReasonText(int reason) {
  std::string text = mosquitto_reason_string(reason);
  std::ranges::transform(text, text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  while (!text.empty() && text.back() == '.') {
    text.pop_back();
  }
  return text;
}

} // namespace gk::messages
