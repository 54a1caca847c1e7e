#include "gateway/http/ResourceHandlers.h"

#include "formats/json/Json.h"
#include "formats/json/JsonWriter.h"
#include "formats/text/FormatError.h"
#include "gateway/http/Metrics.h"
#include "gateway/http/OpenApi.h"
#include "gateway/http/StaticFiles.h"
#include "gateway/robot/Describe.h"
#include "gk/GKCaller.h"
#include "gk/GKModule.h"

#include <boost/json/object.hpp>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <charconv>
#include <exception>
#include <utility>

namespace gk::gateway {

namespace {

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
  if (exchange.robot->memory() == nullptr) {
    exchange.respond(errorResponse(404, "there is no memory to write to"));
    return;
  }
  try {
    exchange.robot->writeKey(exchange.name, formats::parseJson(exchange.request.body));
  } catch (const formats::FormatError& error) {
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
  response.body = metricsText(*exchange.robot, exchange.parts.counters,
                              exchange.parts.runner.running(), exchange.parts.figures.version,
                              exchange.parts.figures.startTime, exchange.parts.figures.recording);
  exchange.respond(std::move(response));
}

void answerAlive(const Exchange& exchange) {
  HttpResponse response;
  response.contentType = "text/plain; charset=utf-8";
  response.body = "ok\n";
  exchange.respond(std::move(response));
}

void answerReady(const Exchange& exchange) {
  const Readiness readiness =
      readinessOf(exchange.robot.get(), exchange.parts.counters, exchange.parts.figures.recording);
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
    const boost::json::value body = formats::parseJson(exchange.request.body);
    const boost::json::value* given =
        body.is_object() ? body.get_object().if_contains("token") : nullptr;
    if (given != nullptr && given->is_string()) {
      token.assign(given->get_string().data(), given->get_string().size());
    }
  } catch (const formats::FormatError&) {
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
  formats::JsonWriter json(body);
  json.beginObject().key("ticket").text(exchange.parts.access.openTicket());
  json.key("expires_s").integer(Access::kTicketLife.count()).endObject();
  exchange.respond(jsonResponse(std::move(body)));
}

void answerFile(const HttpRequest& request, const Target& target, const Respond& respond) {
  const bool isRead = request.method == "GET" || request.method == "HEAD";
  const StaticFile* file = isRead ? findStaticFile(target.path) : nullptr;
  if (file == nullptr) {
    respond(errorResponse(404, "there is nothing at " + target.path));
    return;
  }
  HttpResponse response;
  response.contentType = file->contentType;
  response.headers.emplace_back("ETag", file->etag);
  response.headers.emplace_back("Cache-Control", "no-cache");
  if (request.ifNoneMatch == file->etag) {
    response.status = 304;
  } else {
    const bool isSmall = request.takesGzip && !file->gzip.empty();
    response.body = isSmall ? file->gzip : file->bytes;
    response.headers.emplace_back("Vary", "Accept-Encoding");
    if (isSmall) {
      response.headers.emplace_back("Content-Encoding", "gzip");
    }
  }
  respond(std::move(response));
}

} // namespace gk::gateway
