// Load on a running host: WebSocket clients that take everything in, and requests at a fixed rate.
// Usage: gateway_load [--host-pid PID] HOST:PORT [SECONDS [CLIENTS [REQUESTS_A_SECOND]]]
// Ends with exit code 1 when an answer was wrong, the loop was late, or memory grew. With the
// host's process id it tells what the host took of the processors.

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace json = boost::json;
using beast::error_code;
using Clock = std::chrono::steady_clock;

/// The bars: lateness of the loop in seconds (99.9th percentile) and growth of memory in bytes.
constexpr double kLateness = 0.005;
constexpr double kGrowth = 8.0 * 1024 * 1024;

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

/// The value below which a share of all values lies.
double quantile(std::vector<double> values, double share) {
  if (values.empty()) {
    return NAN;
  }
  const auto place = static_cast<std::size_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(place),
                   values.end());
  return values[place];
}

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

/// The body of one answer.
std::string get(const Target& target, const std::string& path) {
  asio::io_context context;
  beast::tcp_stream stream(context);
  stream.connect(target.endpoint);
  http::request<http::string_body> request(http::verb::get, path, 11);
  request.set(http::field::host, target.name);
  http::write(stream, request);
  beast::flat_buffer buffer;
  http::response<http::string_body> response;
  http::read(stream, buffer, response);
  return response.body();
}

double residentMemory(const Target& target) {
  const std::string metrics = get(target, "/metrics");
  const std::string name = "\nprocess_resident_memory_bytes ";
  return std::strtod(metrics.c_str() + metrics.find(name) + name.size(), nullptr);
}

/// What the host itself has measured, in seconds; nothing where it measures nothing.
double hostLateness(const Target& target) {
  const json::value host = json::parse(get(target, "/api/v1/host"));
  for (const json::value& loop : host.at("loops").as_array()) {
    if (const json::value* lateness = loop.as_object().if_contains("lateness")) {
      const json::value& worst = lateness->at("p999_s");
      return worst.is_null() ? INFINITY : worst.to_number<double>();
    }
  }
  return NAN;
}

std::string firstLine(const std::string& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

/// One of the numbers of a line of /proc, 0 where there are fewer.
double ticksAt(std::istringstream numbers, int place) {
  std::string number;
  for (int i = 0; i < place && numbers >> number; ++i) {
  }
  return std::strtod(number.c_str(), nullptr) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

/// What the machine has spent until now, in seconds of a processor.
struct Spent {
  /// Of the host alone: in its own code, and in the kernel for it.
  double user = 0;
  double system = 0;
  /// What the hypervisor gave to others.
  double stolen = 0;
};

/// `pid`: of the host; empty for one that is not here.
Spent spentNow(const std::string& pid) {
  constexpr int userPlace = 12;
  constexpr int stolenPlace = 9;
  Spent spent;
  spent.stolen = ticksAt(std::istringstream(firstLine("/proc/stat")), stolenPlace);
  if (!pid.empty()) {
    // The name, in parentheses, may have spaces in it.
    const std::string line = firstLine("/proc/" + pid + "/stat");
    const std::string numbers = line.substr(line.rfind(')') + 1);
    spent.user = ticksAt(std::istringstream(numbers), userPlace);
    spent.system = ticksAt(std::istringstream(numbers), userPlace + 1);
  }
  return spent;
}

void printSpent(const Spent& before, const Spent& after, const Totals& totals, int seconds) {
  const double user = after.user - before.user;
  const double system = after.system - before.system;
  if (user + system > 0) {
    std::printf("host: %.2f s of a processor (%.2f in the kernel), %.1f us a message\n",
                user + system, system,
                (user + system) * 1e6 / static_cast<double>(totals.messages + totals.answers));
  }
  std::printf("stolen by the hypervisor: %.2f s of %.0f\n", after.stolen - before.stolen,
              static_cast<double>(seconds) * static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN)));
}

int run(const std::string& name, const std::string& pid, int seconds, int clients, int rate) {
  const std::size_t colon = name.rfind(':');
  const Target target{name,
                      {asio::ip::make_address(name.substr(0, colon)),
                       static_cast<std::uint16_t>(std::stoi(name.substr(colon + 1)))}};
  asio::io_context context(1);
  Totals totals;
  for (int i = 0; i < clients; ++i) {
    std::make_shared<Viewer>(context, target, totals, i == 0)->start();
  }
  constexpr int kAskers = 40;
  const auto period = std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(static_cast<double>(kAskers) / rate));
  for (int i = 0; i < kAskers; ++i) {
    std::make_shared<Asker>(context, target, totals, period, i % 2 == 0)
        ->start(period * i / kAskers);
  }
  // Memory is compared after everybody has settled in.
  const int warmUp = std::max(1, seconds / 6);
  context.run_for(std::chrono::seconds(warmUp));
  const double memoryBefore = residentMemory(target);
  totals = Totals();
  const Spent before = spentNow(pid);
  context.run_for(std::chrono::seconds(seconds));
  const Spent after = spentNow(pid);
  const double memoryAfter = residentMemory(target);
  const double measured = hostLateness(target);
  const double lateness = std::isnan(measured) ? quantile(totals.tickDelays, 0.999) : measured;

  const double answered = static_cast<double>(totals.answers) / seconds;
  std::printf("%d WebSocket clients: %.0f messages/s, %.1f MB/s, %llu reports of losses\n", clients,
              static_cast<double>(totals.messages) / seconds,
              static_cast<double>(totals.bytes) / seconds / 1e6,
              static_cast<unsigned long long>(totals.losses));
  std::printf("%.0f answers/s of %d asked, %llu failed, %llu not sent in time\n", answered, rate,
              static_cast<unsigned long long>(totals.failures),
              static_cast<unsigned long long>(totals.skipped));
  std::printf("answer time: median %.2f ms, 99 %% %.2f ms, 99.9 %% %.2f ms\n",
              quantile(totals.answerTimes, 0.5) * 1e3, quantile(totals.answerTimes, 0.99) * 1e3,
              quantile(totals.answerTimes, 0.999) * 1e3);
  std::printf("loop: 99.9 %% of ticks at most %.2f ms late (%s)\n", lateness * 1e3,
              std::isnan(measured) ? "between ticks" : "by the host");
  printSpent(before, after, totals, seconds);
  std::printf("memory: %.1f MB, grown by %.2f MB\n", memoryAfter / 1e6,
              (memoryAfter - memoryBefore) / 1e6);
  constexpr double kEnough = 0.95;
  const bool isGood = totals.failures == 0 && answered >= kEnough * rate && lateness < kLateness &&
                      memoryAfter - memoryBefore < kGrowth;
  std::printf("%s\n", isGood ? "good" : "NOT GOOD");
  return isGood ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  std::string pid;
  if (arguments.size() > 1 && arguments[0] == "--host-pid") {
    pid = arguments[1];
    arguments.erase(arguments.begin(), arguments.begin() + 2);
  }
  if (arguments.empty()) {
    std::fprintf(stderr, "usage: gateway_load [--host-pid PID] HOST:PORT "
                         "[SECONDS [CLIENTS [REQUESTS_A_SECOND]]]\n");
    return 2;
  }
  const auto number = [&](std::size_t place, int otherwise) {
    return arguments.size() > place ? std::atoi(arguments[place].c_str()) : otherwise;
  };
  try {
    return run(arguments[0], pid, number(1, 60), number(2, 200), number(3, 2000));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "gateway_load: %s\n", error.what());
    return 1;
  }
}
