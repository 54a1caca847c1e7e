#include "gateway/http/ResourceHandlers.h"

#include "gateway/http/Metrics.h"
#include "gateway/http/OpenApi.h"
#include "gateway/http/StaticFiles.h"
#include "gateway/robot/Describe.h"
#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "gk/GKModule.h"
#include "messages/json/Json.h"
#include "messages/json/JsonWriter.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"
#include "messages/text/WallTime.h"

#include <boost/json/object.hpp>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <exception>
#include <utility>

namespace gk::gateway {

namespace {

std::vector<StatusRow> statusOf(const Exchange& exchange) {
  const StatusSource& status = exchange.parts.figures.status;
  return status ? status() : std::vector<StatusRow>();
}

bool isVerbose(const Exchange& exchange) {
  return std::ranges::any_of(exchange.target.query,
                             [](const auto& one) { return one.first == "verbose"; });
}

constexpr std::size_t kDefaultPage = 100;
constexpr std::size_t kLargestPage = 10'000;

HttpResponse jsonResponse(std::string body) {
  HttpResponse response;
  response.body = std::move(body);
  return response;
}

/// A query's number, or the default when it is absent; nothing for anything else.
std::optional<std::size_t> limitOf(std::string_view text) {
  if (text.empty()) {
    return kDefaultPage;
  }
  std::size_t limit = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), limit);
  const bool isGood =
      error == std::errc() && end == text.end() && limit >= 1 && limit <= kLargestPage;
  return isGood ? std::optional(limit) : std::nullopt;
}

/// A query's seconds in microseconds, `absent` when there are none; nothing for anything else.
std::optional<GK::GKMicros> secondsOf(const Target& target, std::string_view name,
                                      GK::GKMicros absent) {
  const std::string_view text = target.find(name);
  if (text.empty()) {
    return absent;
  }
  const std::optional<double> seconds = messages::parseDouble(text);
  return seconds && *seconds >= 0 ? messages::toMicros(*seconds) : std::nullopt;
}

/// How much of the past is to be kept; nothing for a body that does not say so.
std::optional<GK::GKMicros> lastOf(const std::string& text) {
  try {
    const boost::json::value body = messages::parseJson(text);
    if (!body.is_object()) {
      return std::nullopt;
    }
    const boost::json::value* seconds = body.get_object().if_contains("seconds");
    if (seconds == nullptr) {
      return body.get_object().empty() ? messages::toMicros(messages::kMaxSeconds) : std::nullopt;
    }
    const std::optional<double> number =
        seconds->is_number() ? std::optional(seconds->to_number<double>()) : std::nullopt;
    return number && *number > 0 ? messages::toMicros(*number) : std::nullopt;
  } catch (const messages::FormatError&) {
    return std::nullopt;
  }
}

/// The calls that make today's subscribers of the extractors subscribe again. Nobody else does so
/// in a replay that does not begin with the run.
std::vector<formats::Action> subscriptionsOf(const Robot& robot) {
  std::vector<formats::Action> actions;
  for (const auto& module : robot.broker().getModules()) {
    constexpr const char* subscribe = "subscribe";
    constexpr const char* info = "getSubscribersInfo";
    if (module->findMethod(subscribe, 3) == nullptr || module->findMethod(info, 0) == nullptr) {
      continue;
    }
    const GK::GKValue subscribers = module->callMethod(info, {});
    for (const GK::GKValue& one : subscribers.toArray()) {
      if (one.type() == GK::GKValue::Type::Array && one.toArray().size() == 3) {
        const std::string& name = module->getName();
        actions.emplace_back(
            formats::CallAction{name, subscribe, one.toArray(), name + "." + subscribe});
      }
    }
  }
  return actions;
}

/// "past-20261122-064512.mcap".
std::string keptName(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  gmtime_r(&time, &parts);
  std::array<char, 32> text{};
  const std::size_t length =
      std::strftime(text.data(), text.size(), "past-%Y%m%d-%H%M%S.mcap", &parts);
  return {text.data(), length};
}

/// Runs `work` in a task; it makes the response.
void respondInTask(const Exchange& exchange, GK::GKTask name, std::function<HttpResponse()> work) {
  const bool isStarted = exchange.parts.runner.start(
      std::move(name), [work = std::move(work), respond = exchange.respond] {
        HttpResponse response;
        try {
          const GK::GKCallerScope scope(GK::GKCaller::Client);
          response = work();
        } catch (const std::exception& error) {
          response = errorResponse(500, error.what());
        } catch (...) {
          response = errorResponse(500, "unknown exception");
        }
        respond(std::move(response));
      });
  if (!isStarted) {
    exchange.respond(errorResponse(503, "too many calls are running"));
  }
}

} // namespace

void answerCall(const Exchange& exchange) {
  exchange.parts.rpc.handle(exchange.robot, exchange.request.body,
                            [respond = exchange.respond](std::string reply) {
                              HttpResponse response = jsonResponse(std::move(reply));
                              if (response.body.empty()) {
                                response.status = 204;
                              }
                              respond(std::move(response));
                            });
}

void answerHost(const Exchange& exchange) {
  HostDescription host;
  host.version = exchange.parts.figures.version;
  host.startTime = exchange.parts.figures.startTime;
  host.session = exchange.parts.figures.session;
  if (const auto& playback = exchange.parts.figures.playback) {
    host.playback = playbackJson(playback->state());
  }
  host.source = exchange.parts.figures.source.get();
  host.counters = &exchange.parts.counters;
  host.callsRunning = exchange.parts.runner.running();
  host.isVerbose = isVerbose(exchange);
  exchange.respond(jsonResponse(describeHost(*exchange.robot, host)));
}

void answerModules(const Exchange& exchange) {
  exchange.respond(jsonResponse(describeModules(*exchange.robot)));
}

void answerModule(const Exchange& exchange) {
  const auto found = exchange.robot->findModule(exchange.name);
  if (const auto* error = std::get_if<RpcError>(&found)) {
    exchange.respond(errorResponse(404, error->message));
    return;
  }
  // In a task: a module's own code tells its version.
  respondInTask(
      exchange, {exchange.name, "version"},
      [robot = exchange.robot, module = std::get<boost::shared_ptr<GK::GKModuleCore>>(found)] {
        return jsonResponse(describeModule(*robot, *module));
      });
}

void answerKeys(const Exchange& exchange) {
  const std::optional<std::size_t> limit = limitOf(exchange.target.find("limit"));
  if (!limit) {
    exchange.respond(errorResponse(400, "limit must be a number from 1 to 10000"));
    return;
  }
  KeyPage page;
  page.prefix = exchange.target.find("prefix");
  page.contains = exchange.target.find("contains");
  page.after = exchange.target.find("after");
  page.limit = *limit;
  page.bytes = exchange.parts.figures.answer;
  // In a task: there may be a million keys to sort.
  respondInTask(exchange, {GK::GKMemory::kName, "getDataList"}, [robot = exchange.robot, page] {
    return jsonResponse(describeKeys(*robot, page));
  });
}

void answerGetKey(const Exchange& exchange) {
  const std::shared_ptr<GK::GKMemoryStore> store = exchange.robot->store();
  const std::optional<GK::GKValue> value =
      store != nullptr ? store->get(exchange.name) : std::nullopt;
  if (!value) {
    exchange.respond(errorResponse(404, exchange.robot->unknownKey(exchange.name)));
    return;
  }
  exchange.respond(jsonResponse(describeKey(exchange.name, *value)));
}

void answerPutKey(const Exchange& exchange) {
  if (!exchange.robot->refusal().empty()) {
    exchange.respond(errorResponse(409, exchange.robot->refusal()));
    return;
  }
  if (exchange.robot->memory() == nullptr) {
    exchange.respond(errorResponse(404, "there is no memory to write to"));
    return;
  }
  try {
    exchange.robot->writeKey(exchange.name, messages::parseJson(exchange.request.body));
  } catch (const messages::FormatError& error) {
    exchange.respond(errorResponse(400, error.what()));
    return;
  } catch (const GK::GKError& error) {
    exchange.respond(errorResponse(400, error.getDescription()));
    return;
  }
  answerGetKey(exchange);
}

void answerEvents(const Exchange& exchange) {
  exchange.respond(
      jsonResponse(describeEvents(*exchange.robot, {std::string(exchange.target.find("after")),
                                                    exchange.parts.figures.answer})));
}

void answerVerdict(const Exchange& exchange) {
  exchange.respond(jsonResponse(exchange.parts.verdict.json()));
}

void answerWords(const Exchange& exchange) {
  exchange.respond(jsonResponse(wordsJson()));
}

void answerPast(const Exchange& exchange) {
  Playback* const playback = exchange.parts.figures.playback.get();
  if (playback == nullptr && !exchange.parts.past.isOn()) {
    exchange.respond(errorResponse(404, "this host keeps nothing of the past"));
    return;
  }
  PastRange range;
  range.most = exchange.parts.figures.answer;
  const std::optional<GK::GKMicros> from = secondsOf(exchange.target, "from", 0);
  const std::optional<GK::GKMicros> to = secondsOf(exchange.target, "to", 0);
  const std::optional<GK::GKMicros> step = secondsOf(exchange.target, "step", range.step);
  if (!from || !to || !step) {
    exchange.respond(errorResponse(400, "from, to and step must be seconds, not less than 0"));
    return;
  }
  const auto given = [&exchange](std::string_view name, GK::GKMicros time) {
    return exchange.target.find(name).empty() ? std::nullopt : std::optional(time);
  };
  range.from = given("from", *from);
  range.to = given("to", *to);
  range.step = *step;
  // In a task: ten minutes are millions of values.
  respondInTask(exchange, {GK::GKMemory::kName, "getData"},
                [&parts = exchange.parts, range, playback] {
                  const std::string& session = parts.figures.session;
                  return jsonResponse(playback != nullptr ? playback->pastJson(range, session)
                                                          : parts.past.json(range, session));
                });
}

void answerKeep(const Exchange& exchange) {
  if (!exchange.robot->refusal().empty()) {
    exchange.respond(errorResponse(409, exchange.robot->refusal()));
    return;
  }
  if (!exchange.parts.past.isOn()) {
    exchange.respond(errorResponse(404, "this host keeps nothing of the past"));
    return;
  }
  const std::optional<GK::GKMicros> last = lastOf(exchange.request.body);
  if (!last) {
    exchange.respond(errorResponse(400, "the body must be {} or {\"seconds\": N}, N above 0"));
    return;
  }
  respondInTask(
      exchange, {GK::GKMemory::kName, "getData"},
      [&parts = exchange.parts, robot = exchange.robot, last] {
        const GK::GKClock& clock = GK::GKClock::instance();
        const GK::GKWallTime wall = clock.wallTime();
        std::optional<std::string> bytes = parts.past.recording(
            *last, messages::epochOf(wall, clock.elapsed()),
            {{"version", "gksensors " + parts.figures.version}, {"source", "the past of a run"}},
            subscriptionsOf(*robot));
        if (!bytes) {
          return errorResponse(404, "nothing has happened yet");
        }
        HttpResponse response;
        response.contentType = "application/octet-stream";
        response.body = *std::move(bytes);
        response.headers.emplace_back("Content-Disposition",
                                      "attachment; filename=\"" + keptName(wall.seconds) + "\"");
        return response;
      });
}

void answerStatus(const Exchange& exchange) {
  const auto found = exchange.robot->findModule(exchange.name);
  if (const auto* error = std::get_if<RpcError>(&found)) {
    exchange.respond(errorResponse(404, error->message));
    return;
  }
  const auto module = boost::dynamic_pointer_cast<GK::GKModule>(
      std::get<boost::shared_ptr<GK::GKModuleCore>>(found));
  if (module == nullptr) {
    exchange.respond(errorResponse(404, exchange.name + " has no status page"));
    return;
  }
  respondInTask(exchange, {exchange.name, "httpGet"}, [module] {
    HttpResponse response;
    response.contentType = "text/html; charset=utf-8";
    response.body = module->httpGet();
    // Whatever a module writes into its page, it is text and nothing that runs.
    response.headers.emplace_back("Content-Security-Policy",
                                  "default-src 'none'; style-src 'unsafe-inline'; "
                                  "frame-ancestors 'self'; sandbox");
    return response;
  });
}

void answerOpenApi(const Exchange& exchange) {
  exchange.respond(jsonResponse(
      describeApi(*exchange.robot, exchange.parts.routes, exchange.parts.figures.version)));
}

void answerMetrics(const Exchange& exchange) {
  HttpResponse response;
  response.contentType = "text/plain; version=0.0.4; charset=utf-8";
  response.body =
      metricsText(*exchange.robot, exchange.parts.counters, exchange.parts.runner.running(),
                  exchange.parts.figures.version, exchange.parts.figures.startTime,
                  exchange.parts.figures.recording, statusOf(exchange));
  exchange.respond(std::move(response));
}

void answerAlive(const Exchange& exchange) {
  HttpResponse response;
  response.contentType = "text/plain; charset=utf-8";
  response.body = "ok\n";
  exchange.respond(std::move(response));
}

void answerReady(const Exchange& exchange) {
  Readiness readiness =
      readinessOf(exchange.robot.get(), exchange.parts.counters, exchange.parts.figures.recording);
  for (const devices::Matter& matter : exchange.parts.verdict.matters()) {
    // The conditions tell of these already.
    constexpr std::array<std::string_view, 3> told = {"loop", "disk", "recording"};
    if (std::ranges::find(told, matter.subject) == told.end()) {
      readiness.matters.push_back(matter.text);
    }
  }
  for (const StatusRow& row : statusOf(exchange)) {
    if (row.level == devices::Level::Fine) {
      readiness.told.push_back(row.module + " " + row.told());
    }
  }
  HttpResponse response;
  response.contentType = "text/plain; charset=utf-8";
  response.status = readiness.isReady() ? 200 : 503;
  response.body =
      isVerbose(exchange) ? readiness.text() : (readiness.isReady() ? "ok\n" : "not ready\n");
  exchange.respond(std::move(response));
}

void answerLogin(const Exchange& exchange) {
  std::string token;
  try {
    const boost::json::value body = messages::parseJson(exchange.request.body);
    const boost::json::value* given =
        body.is_object() ? body.get_object().if_contains("token") : nullptr;
    if (given != nullptr && given->is_string()) {
      token.assign(given->get_string().data(), given->get_string().size());
    }
  } catch (const messages::FormatError&) {
    token.clear();
  }
  if (exchange.parts.access.needsToken() && !exchange.parts.access.isToken(token)) {
    exchange.parts.counters.refusals.fetch_add(1, std::memory_order_relaxed);
    HttpResponse refusal = errorResponse(401, "this is not the token");
    refusal.isGuessRefused = true;
    exchange.respond(std::move(refusal));
    return;
  }
  HttpResponse response = jsonResponse("{}");
  if (exchange.parts.access.needsToken()) {
    response.headers.emplace_back("Set-Cookie", std::string(Access::kCookie) + "=" +
                                                    exchange.parts.access.openSession() +
                                                    "; HttpOnly; SameSite=Strict; Path=/");
  }
  exchange.respond(std::move(response));
}

void answerTicket(const Exchange& exchange) {
  std::string body;
  messages::JsonWriter json(body);
  json.beginObject().key("ticket").text(exchange.parts.access.openTicket());
  json.key("expires_s").integer(Access::kTicketLife.count()).endObject();
  exchange.respond(jsonResponse(std::move(body)));
}

void answerFile(const HttpRequest& request, const Target& target, const Respond& respond) {
  const bool isRead = request.method == "GET" || request.method == "HEAD";
  respond(fileResponse(isRead ? findStaticFile(staticFiles(), target.path) : nullptr, request,
                       target.path));
}

} // namespace gk::gateway
