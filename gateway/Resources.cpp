#include "gateway/Resources.h"

#include "devices/DeviceKeys.h"
#include "formats/FormatError.h"
#include "formats/Json.h"
#include "gateway/Describe.h"
#include "gateway/JsonWriter.h"
#include "gateway/Metrics.h"
#include "gateway/OpenApi.h"
#include "gateway/StaticFiles.h"
#include "gk/GKCaller.h"
#include "gk/GKModule.h"

#include <boost/json/object.hpp>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <exception>
#include <utility>

namespace gk::gateway {

namespace {

constexpr std::size_t kDefaultPage = 100;
constexpr std::size_t kLargestPage = 10'000;

constexpr std::pair<std::string_view, std::string_view> kKeyQuery[] = {
    {"prefix", "only keys that begin so"},
    {"contains", "only keys that contain this"},
    {"limit", "at most so many, 1 to 10000; 100 when absent"},
    {"after", "only keys that come after this one: the \"next\" of the page before"}};
constexpr std::pair<std::string_view, std::string_view> kReadyQuery[] = {
    {"verbose", "any value: tell each condition"}};

HttpResponse jsonResponse(std::string body) {
  HttpResponse response;
  response.body = std::move(body);
  return response;
}

bool isJson(std::string_view contentType) {
  const std::string_view type = contentType.substr(0, contentType.find(';'));
  constexpr std::string_view wanted = "application/json";
  const std::string_view trimmed = type.substr(0, type.find_last_not_of(" \t") + 1);
  return std::ranges::equal(trimmed, wanted, [](unsigned char left, unsigned char right) {
    return std::tolower(left) == right;
  });
}

/// The part of `path` that stands for the braces of `pattern`; nothing when it does not fit.
std::optional<std::string> match(std::string_view pattern, std::string_view path) {
  const std::size_t brace = pattern.find('{');
  if (brace == std::string_view::npos) {
    return pattern == path ? std::optional(std::string()) : std::nullopt;
  }
  const std::string_view fixed = pattern.substr(0, brace);
  if (!path.starts_with(fixed) || path.size() == fixed.size()) {
    return std::nullopt;
  }
  std::string name(path.substr(fixed.size()));
  const bool isKey = pattern.substr(brace) == "{key}";
  return isKey || name.find('/') == std::string::npos ? std::optional(std::move(name))
                                                      : std::nullopt;
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

} // namespace

/// One request on its way through a handler.
struct Resources::Exchange {
  std::shared_ptr<const Robot> robot;
  const HttpRequest& request;
  const Target& target;
  /// What stands for the braces of the route's path.
  std::string name;
  Respond respond;
};

std::span<const Resources::Route> Resources::routes() {
  static constexpr Route table[] = {
      {"POST", "/rpc", "Calls bound methods: JSON-RPC 2.0", &Resources::xCall},
      {"GET", "/api/v1/host", "The host: version, clock, loops, clients", &Resources::xHost},
      {"GET", "/api/v1/modules", "All modules", &Resources::xModules},
      {"GET", "/api/v1/modules/{name}", "A module: methods, parameters, events",
       &Resources::xModule},
      {"GET", "/api/v1/memory", "Memory keys and their values, sorted", &Resources::xKeys, false,
       kKeyQuery},
      {"GET", "/api/v1/memory/{key}", "A memory key's value", &Resources::xGetKey},
      {"PUT", "/api/v1/memory/{key}", "Writes a memory key; the body is the value",
       &Resources::xPutKey},
      {"GET", "/api/v1/events", "All events: owner, count, last value and time",
       &Resources::xEvents},
      {"POST", "/api/v1/tickets", "A ticket for one WebSocket connection: /ws?ticket=...",
       &Resources::xTicket},
      {"POST", "/login", "Opens a session for a browser: {\"token\": TOKEN}", &Resources::xLogin,
       true},
      {"GET",
       "/status/{name}",
       "A module's own status page",
       &Resources::xStatus,
       false,
       {},
       "text/html"},
      {"GET", "/openapi.json", "This description", &Resources::xOpenApi},
      {"GET", "/metrics", "Figures for Prometheus", &Resources::xMetrics, false, {}, "text/plain"},
      {"GET", "/livez", "Whether the process is alive", &Resources::xAlive, true, {}, "text/plain"},
      {"GET", "/readyz", "Whether modules are loaded and tick", &Resources::xReady, true,
       kReadyQuery, "text/plain"},
  };
  return table;
}

Resources::Resources(Access& access, CallRunner& runner, Counters& counters, HostFigures figures)
    : fAccess(access), fRunner(runner), fCounters(counters), fFigures(std::move(figures)),
      fRpc(runner, counters) {}

std::optional<HttpResponse> Resources::refuse(const HttpRequest& request, const Target& target,
                                              bool isOpen) {
  std::optional<HttpResponse> refusal;
  if (!fAccess.isHostAllowed(request.host)) {
    refusal = errorResponse(403, "this host is not known by the name that the request gives it");
  } else if (!fAccess.isOriginAllowed(request.origin)) {
    refusal = errorResponse(403, "pages of this origin may not use the robot");
  } else if (!isOpen && !fAccess.isAuthorised({request.host, request.origin, request.authorization,
                                               request.cookie, target.find("ticket")})) {
    refusal = errorResponse(401, "a token is needed");
    refusal->headers.emplace_back("WWW-Authenticate", "Bearer");
  }
  if (refusal) {
    fCounters.refusals.fetch_add(1, std::memory_order_relaxed);
  }
  return refusal;
}

void Resources::handle(std::shared_ptr<const Robot> robot, HttpRequest request, Respond respond) {
  const std::optional<Target> target = parseTarget(request.target);
  if (!target) {
    respond(errorResponse(400, "the request's target cannot be read"));
    return;
  }
  const bool isHead = request.method == "HEAD";
  const std::string_view method = isHead ? std::string_view("GET") : request.method;
  const Route* chosen = nullptr;
  std::string name;
  std::string allowed;
  for (const Route& route : routes()) {
    std::optional<std::string> part = match(route.path, target->path);
    if (!part) {
      continue;
    }
    allowed += (allowed.empty() ? "" : ", ") + std::string(route.method);
    if (route.method == method) {
      chosen = &route;
      name = *std::move(part);
    }
  }
  // The page itself says nothing about the robot: it must load before anybody can log in.
  const bool isOpen = chosen != nullptr ? chosen->isOpen : allowed.empty();
  if (std::optional<HttpResponse> refusal = refuse(request, *target, isOpen)) {
    respond(*std::move(refusal));
    return;
  }
  if (chosen == nullptr && !allowed.empty()) {
    HttpResponse response = errorResponse(405, request.method + " is not offered here");
    response.headers.emplace_back("Allow", allowed);
    respond(std::move(response));
    return;
  }
  if (chosen == nullptr) {
    xFile(request, *target, respond);
    return;
  }
  // Pages of others can send forms and plain text without asking, but not this.
  if (method != "GET" && !isJson(request.contentType)) {
    respond(errorResponse(415, "the Content-Type must be application/json"));
    return;
  }
  if (robot == nullptr && !chosen->isOpen) {
    respond(errorResponse(503, "the host is starting or ending"));
    return;
  }
  (this->*chosen->handler)(
      {std::move(robot), request, *target, std::move(name), std::move(respond)});
}

void Resources::xInTask(const Exchange& exchange, GK::GKTask name,
                        std::function<HttpResponse()> work) {
  const bool isStarted =
      fRunner.start(std::move(name), [work = std::move(work), respond = exchange.respond] {
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

void Resources::xCall(const Exchange& exchange) {
  fRpc.handle(exchange.robot, exchange.request.body,
              [respond = exchange.respond](std::string reply) {
                HttpResponse response = jsonResponse(std::move(reply));
                if (response.body.empty()) {
                  response.status = 204;
                }
                respond(std::move(response));
              });
}

void Resources::xHost(const Exchange& exchange) {
  HostDescription host;
  host.version = fFigures.version;
  host.startTime = fFigures.startTime;
  host.counters = &fCounters;
  host.callsRunning = fRunner.running();
  exchange.respond(jsonResponse(describeHost(*exchange.robot, host)));
}

void Resources::xModules(const Exchange& exchange) {
  exchange.respond(jsonResponse(describeModules(*exchange.robot)));
}

void Resources::xModule(const Exchange& exchange) {
  const auto found = exchange.robot->findModule(exchange.name);
  if (const auto* error = std::get_if<RpcError>(&found)) {
    exchange.respond(errorResponse(404, error->message));
    return;
  }
  // In a task: a module's own code tells its version.
  xInTask(exchange, {exchange.name, "version"},
          [robot = exchange.robot, module = std::get<boost::shared_ptr<GK::GKModuleCore>>(found)] {
            return jsonResponse(describeModule(*robot, *module));
          });
}

void Resources::xKeys(const Exchange& exchange) {
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
  // In a task: there may be a million keys to sort.
  xInTask(exchange, {GK::GKMemory::kName, "getDataList"},
          [robot = exchange.robot, page] { return jsonResponse(describeKeys(*robot, page)); });
}

void Resources::xGetKey(const Exchange& exchange) {
  const std::shared_ptr<GK::GKMemoryStore> store = exchange.robot->store();
  const std::optional<GK::GKValue> value =
      store != nullptr ? store->get(exchange.name) : std::nullopt;
  if (!value) {
    exchange.respond(errorResponse(404, exchange.robot->unknownKey(exchange.name)));
    return;
  }
  exchange.respond(jsonResponse(describeKey(exchange.name, *value)));
}

void Resources::xPutKey(const Exchange& exchange) {
  try {
    exchange.robot->writeKey(exchange.name, formats::parseJson(exchange.request.body));
  } catch (const formats::FormatError& error) {
    exchange.respond(errorResponse(400, error.what()));
    return;
  } catch (const GK::GKError& error) {
    exchange.respond(errorResponse(404, error.getDescription()));
    return;
  }
  xGetKey(exchange);
}

void Resources::xEvents(const Exchange& exchange) {
  exchange.respond(jsonResponse(describeEvents(*exchange.robot)));
}

void Resources::xStatus(const Exchange& exchange) {
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
  xInTask(exchange, {exchange.name, "httpGet"}, [module] {
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

void Resources::xOpenApi(const Exchange& exchange) {
  exchange.respond(jsonResponse(describeApi(*exchange.robot, fFigures.version)));
}

void Resources::xMetrics(const Exchange& exchange) {
  HttpResponse response;
  response.contentType = "text/plain; version=0.0.4; charset=utf-8";
  response.body = metricsText(*exchange.robot, fCounters, fRunner.running(), fFigures.version,
                              fFigures.startTime);
  exchange.respond(std::move(response));
}

void Resources::xAlive(const Exchange& exchange) {
  HttpResponse response;
  response.contentType = "text/plain; charset=utf-8";
  response.body = "ok\n";
  exchange.respond(std::move(response));
}

void Resources::xReady(const Exchange& exchange) {
  const Readiness readiness = readinessOf(exchange.robot.get(), fCounters);
  HttpResponse response;
  response.contentType = "text/plain; charset=utf-8";
  response.status = readiness.isReady() ? 200 : 503;
  response.body = std::ranges::any_of(exchange.target.query,
                                      [](const auto& one) { return one.first == "verbose"; })
                      ? readiness.text()
                      : (readiness.isReady() ? "ok\n" : "not ready\n");
  exchange.respond(std::move(response));
}

void Resources::xLogin(const Exchange& exchange) {
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
  if (fAccess.needsToken() && !fAccess.isToken(token)) {
    fCounters.refusals.fetch_add(1, std::memory_order_relaxed);
    exchange.respond(errorResponse(401, "this is not the token"));
    return;
  }
  HttpResponse response = jsonResponse("{}");
  if (fAccess.needsToken()) {
    response.headers.emplace_back("Set-Cookie", std::string(Access::kCookie) + "=" +
                                                    fAccess.openSession() +
                                                    "; HttpOnly; SameSite=Strict; Path=/");
  }
  exchange.respond(std::move(response));
}

void Resources::xTicket(const Exchange& exchange) {
  std::string body;
  JsonWriter json(body);
  json.beginObject().key("ticket").text(fAccess.openTicket());
  json.key("expires_s").integer(Access::kTicketLife.count()).endObject();
  exchange.respond(jsonResponse(std::move(body)));
}

void Resources::xFile(const HttpRequest& request, const Target& target,
                      const Respond& respond) const {
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
