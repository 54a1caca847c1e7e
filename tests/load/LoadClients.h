#pragma once

// Clients that put load on a host: viewers that take everything in, and programs that ask at a
// fixed rate.

#include <boost/asio/buffer.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gk::load {

namespace asio = boost::asio;
namespace json = boost::json;
using boost::beast::error_code;
using Clock = std::chrono::steady_clock;

/// Of the loop, in seconds.
constexpr double kPeriod = 0.02;

struct Totals {
  std::uint64_t messages = 0;
  std::uint64_t bytes = 0;
  std::uint64_t losses = 0;
  std::uint64_t answers = 0;
  std::uint64_t skipped = 0;
  std::uint64_t failures = 0;
  std::vector<double> answerTimes;
  /// How much longer than due single ticks took to come, in seconds.
  std::vector<double> tickDelays;
};

struct Target {
  std::string name;
  asio::ip::tcp::endpoint endpoint;
};

/// Bytes that have come and have not been looked at.
class Inbox {
public:
  asio::mutable_buffer room() {
    if (fBytes.size() - fEnd < kLeast) {
      fBytes.resize(2 * fBytes.size());
    }
    return asio::buffer(fBytes.data() + fEnd, fBytes.size() - fEnd);
  }
  void add(std::size_t size) { fEnd += size; }
  std::string_view text() const { return {fBytes.data() + fBegin, fEnd - fBegin}; }
  void drop(std::size_t size) { fBegin += size; }
  /// Moves what is left to the front.
  void tidy() {
    std::copy(fBytes.begin() + static_cast<std::ptrdiff_t>(fBegin),
              fBytes.begin() + static_cast<std::ptrdiff_t>(fEnd), fBytes.begin());
    fEnd -= std::exchange(fBegin, 0);
  }

private:
  static constexpr std::size_t kLeast = 4096;

  std::vector<char> fBytes = std::vector<char>(4 * kLeast);
  std::size_t fBegin = 0;
  std::size_t fEnd = 0;
};

/// A viewer: subscribes to some channels and reads. Takes frames apart by itself, all that have
/// come at once: a library's reader would take more of the machine than the host that is tested.
class Viewer : public std::enable_shared_from_this<Viewer> {
public:
  Viewer(asio::io_context& context, const Target& target, Totals& totals, bool isWatchingTicks)
      : fSocket(context), fTarget(target), fTotals(totals), fIsWatchingTicks(isWatchingTicks) {}

  void start() {
    fSocket.async_connect(fTarget.endpoint, [self = shared_from_this()](error_code error) {
      if (self->check(error)) {
        self->send("GET /ws HTTP/1.1\r\nHost: " + self->fTarget.name +
                   "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                   "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                   "Sec-WebSocket-Protocol: foxglove.websocket.v1\r\n\r\n");
        self->read();
      }
    });
  }

private:
  bool check(error_code error) {
    if (error) {
      fail(error.message());
    }
    return !error;
  }

  void fail(const std::string& why) {
    ++fTotals.failures;
    std::fprintf(stderr, "viewer: %s\n", why.c_str());
  }

  void send(std::string bytes) {
    fSent = std::move(bytes);
    asio::async_write(
        fSocket, asio::buffer(fSent),
        [self = shared_from_this()](error_code error, std::size_t) { self->check(error); });
  }

  void read() {
    fSocket.async_read_some(fInbox.room(),
                            [self = shared_from_this()](error_code error, std::size_t size) {
                              if (self->check(error)) {
                                self->fInbox.add(size);
                                if (self->takeAll()) {
                                  self->read();
                                }
                              }
                            });
  }

  /// False when there is nothing more to be read.
  bool takeAll() {
    if (!fIsOpen) {
      const std::string_view answer = fInbox.text();
      const std::size_t end = answer.find("\r\n\r\n");
      if (end == std::string_view::npos) {
        return true;
      }
      if (!answer.starts_with("HTTP/1.1 101 ")) {
        fail("refused: " + std::string(answer.substr(0, answer.find('\r'))));
        return false;
      }
      fInbox.drop(end + 4);
      fIsOpen = true;
    }
    while (takeFrame()) {
    }
    fInbox.tidy();
    return true;
  }

  /// Takes a frame off, if there is a whole one.
  bool takeFrame() {
    const std::string_view bytes = fInbox.text();
    if (bytes.size() < 2) {
      return false;
    }
    const auto byte = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    std::size_t length = byte(1);
    const std::size_t head = length == 126 ? 4 : length == 127 ? 10 : 2;
    if (bytes.size() < head) {
      return false;
    }
    if (head > 2) {
      length = 0;
      for (std::size_t i = 2; i < head; ++i) {
        length = length << 8U | byte(i);
      }
    }
    if (bytes.size() < head + length) {
      return false;
    }
    ++fTotals.messages;
    fTotals.bytes += length;
    take(byte(0) & 0x0FU, bytes.substr(head, length));
    fInbox.drop(head + length);
    return true;
  }

  void take(unsigned opcode, std::string_view message) {
    constexpr unsigned text = 1;
    constexpr unsigned binary = 2;
    constexpr unsigned ping = 9;
    constexpr std::size_t head = 13;
    if (opcode == binary) {
      if (fIsWatchingTicks && message.size() > head && message[0] == 1 && message[1] == 1) {
        takeTick(message.substr(head));
      }
    } else if (opcode == ping) {
      // Who says nothing for minutes is asked whether it is still there. Masked with zeros.
      send(std::string{'\x8A', static_cast<char>(0x80U | message.size()), 0, 0, 0, 0}.append(
          message));
    } else if (opcode != text) {
      fail("a frame that was not expected");
    } else if (!fIsSubscribed && message.find("\"op\":\"advertise\"") != std::string_view::npos) {
      fIsSubscribed = true;
      subscribe(json::parse(json::string_view(message.data(), message.size())));
    } else if (message.find("lost so far") != std::string_view::npos) {
      ++fTotals.losses;
    }
  }

  void takeTick(std::string_view payload) {
    const json::value tick = json::parse(json::string_view(payload.data(), payload.size()));
    if (const json::value* period = tick.as_object().if_contains("period_s")) {
      fTotals.tickDelays.push_back(std::max(0.0, period->to_number<double>() - kPeriod));
    }
  }

  void subscribe(const json::value& advertisement) {
    // The first subscription is the ticks'.
    const std::string_view wanted[] = {"/tick", "/events", "/joint_states", "/touch", "/battery"};
    std::string list;
    int id = 0;
    for (const std::string_view topic : wanted) {
      ++id;
      for (const json::value& channel : advertisement.at("channels").as_array()) {
        if (channel.at("topic").as_string() == json::string_view(topic.data(), topic.size())) {
          list += (list.empty() ? "" : ",") + std::string(R"({"id":)") + std::to_string(id) +
                  R"(,"channelId":)" + std::to_string(channel.at("id").as_int64()) + "}";
        }
      }
    }
    const std::string text = R"({"op":"subscribe","subscriptions":[)" + list + "]}";
    // One text frame, masked with zeros.
    send(std::string{'\x81', '\xFE', static_cast<char>(text.size() >> 8U),
                     static_cast<char>(text.size() & 0xFFU), 0, 0, 0, 0} +
         text);
  }

  asio::ip::tcp::socket fSocket;
  const Target& fTarget;
  Totals& fTotals;
  const bool fIsWatchingTicks;
  Inbox fInbox;
  std::string fSent;
  bool fIsOpen = false;
  bool fIsSubscribed = false;
};

/// A program that asks again and again, at a fixed rate.
class Asker : public std::enable_shared_from_this<Asker> {
public:
  Asker(asio::io_context& context, const Target& target, Totals& totals, Clock::duration period,
        bool isCalling)
      : fSocket(context), fTimer(context), fTotals(totals), fPeriod(period) {
    const std::string host = " HTTP/1.1\r\nHost: " + target.name + "\r\n";
    if (isCalling) {
      const std::string body = R"({"jsonrpc":"2.0","id":1,"method":"GKBattery.getBatteryCharge"})";
      fRequest = "POST /rpc" + host + "Content-Type: application/json\r\nContent-Length: " +
                 std::to_string(body.size()) + "\r\n\r\n" + body;
    } else {
      fRequest = "GET /api/v1/memory/Device/SubDeviceList/US/Left/Sensor/Value" + host + "\r\n";
    }
    fSocket.connect(target.endpoint);
    fSocket.set_option(asio::ip::tcp::no_delay(true));
  }

  void start(Clock::duration delay) {
    fDue = Clock::now() + delay;
    wait();
  }

private:
  void wait() {
    fTimer.expires_at(fDue);
    fTimer.async_wait([self = shared_from_this()](error_code error) {
      if (!error) {
        self->fDue += self->fPeriod;
        self->ask();
        self->wait();
      }
    });
  }

  void ask() {
    if (fIsBusy) {
      ++fTotals.skipped;
      return;
    }
    fIsBusy = true;
    fStart = Clock::now();
    asio::async_write(fSocket, asio::buffer(fRequest),
                      [self = shared_from_this()](error_code error, std::size_t) {
                        if (error) {
                          self->finish(false);
                        } else {
                          self->read();
                        }
                      });
  }

  void read() {
    fSocket.async_read_some(fInbox.room(),
                            [self = shared_from_this()](error_code error, std::size_t size) {
                              self->fInbox.add(size);
                              if (error) {
                                self->finish(false);
                              } else {
                                self->look();
                              }
                            });
  }

  /// Looks whether the whole answer is there.
  void look() {
    const std::string_view answer = fInbox.text();
    const std::string_view length = "Content-Length: ";
    const std::size_t end = answer.find("\r\n\r\n");
    const std::size_t place = answer.find(length);
    if (end == std::string_view::npos || place == std::string_view::npos) {
      read();
      return;
    }
    const std::size_t size = std::strtoul(answer.data() + place + length.size(), nullptr, 10);
    if (answer.size() < end + 4 + size) {
      read();
      return;
    }
    const bool isGood =
        answer.starts_with("HTTP/1.1 200 ") && answer.find("error", end) == std::string_view::npos;
    fInbox.drop(answer.size());
    fInbox.tidy();
    finish(isGood);
  }

  void finish(bool isGood) {
    fIsBusy = false;
    ++(isGood ? fTotals.answers : fTotals.failures);
    fTotals.answerTimes.push_back(std::chrono::duration<double>(Clock::now() - fStart).count());
  }

  asio::ip::tcp::socket fSocket;
  asio::steady_timer fTimer;
  Totals& fTotals;
  const Clock::duration fPeriod;
  std::string fRequest;
  Inbox fInbox;
  Clock::time_point fDue;
  Clock::time_point fStart;
  bool fIsBusy = false;
};

} // namespace gk::load
