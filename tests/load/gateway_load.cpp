// Load on a running host: WebSocket clients that take everything in, and requests at a fixed rate.
// Usage: gateway_load [--host-pid PID] HOST:PORT [SECONDS [CLIENTS [REQUESTS_A_SECOND]]]
// Ends with exit code 1 when an answer was wrong, the loop was late, or memory grew. With the
// host's process id it tells what the host took of the processors.

#include "load/LoadClients.h"
#include "load/Spent.h"

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace gk::load {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;

/// The bars: lateness of the loop in seconds (99.9th percentile) and growth of memory in bytes.
constexpr double kLateness = 0.005;
constexpr double kGrowth = 8.0 * 1024 * 1024;

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
} // namespace gk::load

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
    return gk::load::run(arguments[0], pid, number(1, 60), number(2, 200), number(3, 2000));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "gateway_load: %s\n", error.what());
    return 1;
  }
}
