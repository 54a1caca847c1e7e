#pragma once

#include "devices/WriteGate.h"
#include "gateway/Gateway.h"
#include "gk/DCM.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKClock.h"
#include "gk/GKMemory.h"
#include "gk/GKObserver.h"
#include "gk/GKResourceManager.h"
#include "messages/keys/DeviceKeys.h"
#include "Probe.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <map>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace gk::gateway::test {

/// A whole platform in real time with all device keys, the module "Probe", and a gateway on a free
/// port of this machine.
class ServedHost {
public:
  explicit ServedHost(GatewayOptions options = {}, const devices::ClientLimits& limits = {}) {
    zu::log::setConsoleLevel(0);
    GK::GKClock::install(GK::makeRealClock());
    options.access.address = {"127.0.0.1", 0};
    options.version = "1.2.3";
    gateway = std::make_unique<Gateway>(std::move(options));
    for (const messages::DeviceKey& key : messages::deviceKeys()) {
      store->set(key.name, key.start);
    }
    GK::GKBrokerManager::setInstance(manager);
    broker = boost::make_shared<GK::GKBroker>("test", manager);
    manager->addBroker(broker);
    memory = boost::make_shared<GK::GKMemory>(broker, store);
    const auto gate = std::make_shared<devices::WriteGate>(limits);
    const auto add = [&gate](const auto& service) {
      service->setGate(gate);
      service->initModule();
    };
    add(memory);
    add(boost::make_shared<GK::DCM>(broker, store));
    add(boost::make_shared<GK::GKResourceManager>(broker, store));
    probe = boost::make_shared<Probe>(broker);
    probe->initModule();
    memory->declareEvent("ProbeEvent", "Probe", GK::GKCaller::Module);
    gateway->open(broker);
  }
  ~ServedHost() {
    gateway->close();
    memory.reset();
    probe.reset();
    broker->shutdown();
    broker.reset();
    gateway.reset();
    GK::GKBrokerManager::setInstance(nullptr);
    GK::GKClock::install(nullptr);
  }
  ServedHost(const ServedHost&) = delete;
  ServedHost& operator=(const ServedHost&) = delete;

  std::uint16_t port() const { return gateway->port(); }
  std::string name() const { return "127.0.0.1:" + std::to_string(port()); }

  void raise(const std::string& event, const GK::GKValue& value) {
    memory->raiseEvent(event, value, GK::GKCaller::Module);
  }
  /// The end of a tick of a loop of "Probe".
  static void tick() { GK::GKObserverList::instance().notifyTick({"Probe", "run"}); }

  const std::shared_ptr<GK::GKMemoryStore> store = std::make_shared<GK::GKMemoryStore>();
  const boost::shared_ptr<GK::GKBrokerManager> manager = boost::make_shared<GK::GKBrokerManager>();
  boost::shared_ptr<GK::GKBroker> broker;
  boost::shared_ptr<GK::GKMemory> memory;
  boost::shared_ptr<Probe> probe;
  std::unique_ptr<Gateway> gateway;
};

struct Answer {
  int status = 0;
  /// By name in lower case.
  std::map<std::string, std::string> headers;
  std::string body;
};

/// A frame as a server sends it.
struct ServerFrame {
  /// 1 text, 2 binary, 8 close, 9 ping, 10 pong; 0 when the connection has ended.
  int opcode = 0;
  std::string payload;
};

/// A connection that sends any bytes, well-formed or not. Waits two minutes at most, which only a
/// host that is stuck takes.
class Socket {
public:
  explicit Socket(std::uint16_t port, int receiveBuffer = 0) {
    fSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer > 0) {
      setsockopt(fSocket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    const timeval limit{120, 0};
    setsockopt(fSocket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      ADD_FAILURE() << "cannot connect";
    }
  }
  ~Socket() { ::close(fSocket); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  void send(const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t count = ::send(fSocket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (count <= 0) {
        return; // The other side has had enough.
      }
      sent += static_cast<std::size_t>(count);
    }
  }

  /// One response; status 0 when the connection has ended instead.
  Answer readAnswer(bool hasBody = true) {
    std::size_t end = std::string::npos;
    while ((end = fBytes.find("\r\n\r\n")) == std::string::npos) {
      if (!xReceive()) {
        return {};
      }
    }
    Answer answer;
    answer.status = std::stoi(fBytes.substr(fBytes.find(' ') + 1, 3));
    std::size_t line = fBytes.find("\r\n") + 2;
    while (line < end) {
      const std::size_t next = fBytes.find("\r\n", line);
      const std::size_t colon = fBytes.find(':', line);
      std::string name = fBytes.substr(line, colon - line);
      std::ranges::transform(name, name.begin(),
                             [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
      answer.headers[name] = fBytes.substr(colon + 2, next - colon - 2);
      line = next + 2;
    }
    fBytes.erase(0, end + 4);
    const auto length = answer.headers.find("content-length");
    if (hasBody && length != answer.headers.end()) {
      answer.body = xTake(std::stoul(length->second));
    }
    return answer;
  }

  /// True when the other side ends the connection without another byte.
  bool isEnded() { return fBytes.empty() && !xReceive(); }

  /// Asks for a WebSocket.
  Answer upgrade(const std::string& path, const std::string& host, const std::string& headers = {},
                 const std::string& subprotocol = "foxglove.sdk.v1") {
    send("GET " + path + " HTTP/1.1\r\nHost: " + host +
         "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" +
         (subprotocol.empty() ? "" : "Sec-WebSocket-Protocol: " + subprotocol + "\r\n") + headers +
         "\r\n");
    return readAnswer();
  }

  void sendFrame(int opcode, const std::string& payload) {
    // Masked with zeros: the payload stays readable.
    std::string frame(1, static_cast<char>(0x80 | opcode));
    if (payload.size() < 126) {
      frame += static_cast<char>(0x80 | payload.size());
    } else {
      const bool isShort = payload.size() < 65536;
      frame += static_cast<char>(0x80 | (isShort ? 126 : 127));
      for (int shift = isShort ? 8 : 56; shift >= 0; shift -= 8) {
        frame += static_cast<char>((payload.size() >> shift) & 0xFF);
      }
    }
    send(frame + std::string(4, '\0') + payload);
  }
  void sendText(const std::string& text) { sendFrame(1, text); }

  ServerFrame readFrame() {
    const std::string head = xTake(2);
    if (head.size() < 2) {
      return {};
    }
    std::size_t length = static_cast<unsigned char>(head[1]);
    const std::string longer = xTake(length == 126 ? 2 : length == 127 ? 8 : 0);
    if (!longer.empty()) {
      length = 0;
      for (const char c : longer) {
        length = length << 8U | static_cast<unsigned char>(c);
      }
    }
    return {head[0] & 0x0F, xTake(length)};
  }

  /// The next text frame that contains `part`; empty when the connection ends before.
  std::string readText(const std::string& part) {
    while (true) {
      ServerFrame frame = readFrame();
      if (frame.opcode == 0 || frame.opcode == 8) {
        return {};
      }
      if (frame.opcode == 1 && frame.payload.find(part) != std::string::npos) {
        return frame.payload;
      }
    }
  }
  /// The next binary frame of this operation.
  std::string readBinary(char operation) {
    while (true) {
      ServerFrame frame = readFrame();
      if (frame.opcode == 0 || frame.opcode == 8) {
        return {};
      }
      if (frame.opcode == 2 && frame.payload.front() == operation) {
        return frame.payload;
      }
    }
  }

private:
  std::string xTake(std::size_t count) {
    while (fBytes.size() < count) {
      if (!xReceive()) {
        return {};
      }
    }
    std::string taken = fBytes.substr(0, count);
    fBytes.erase(0, count);
    return taken;
  }
  bool xReceive() {
    char buffer[65536];
    const ssize_t count = recv(fSocket, buffer, sizeof buffer, 0);
    if (count <= 0) {
      return false;
    }
    fBytes.append(buffer, static_cast<std::size_t>(count));
    return true;
  }

  int fSocket = -1;
  std::string fBytes;
};

/// One request on a connection of its own.
inline Answer ask(const ServedHost& host, const std::string& method, const std::string& target,
                  const std::string& body = {},
                  const std::string& headers = "Content-Type: application/json\r\n") {
  Socket socket(host.port());
  socket.send(method + " " + target + " HTTP/1.1\r\nHost: " + host.name() + "\r\n" +
              (body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") +
              headers + "\r\n" + body);
  return socket.readAnswer(method != "HEAD");
}

/// A remote call; the reply's text.
inline std::string call(const ServedHost& host, const std::string& method,
                        const std::string& params) {
  return ask(host, "POST", "/rpc",
             R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":)" + params + "}")
      .body;
}

} // namespace gk::gateway::test
