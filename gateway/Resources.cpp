#include "gateway/Resources.h"

#include "gateway/Exchange.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace gk::gateway {

namespace {

constexpr std::pair<std::string_view, std::string_view> kKeyQuery[] = {
    {"prefix", "only keys that begin so"},
    {"contains", "only keys that contain this"},
    {"limit", "at most so many, 1 to 10000; 100 when absent"},
    {"after", "only keys that come after this one: the \"next\" of the page before"}};
constexpr std::pair<std::string_view, std::string_view> kReadyQuery[] = {
    {"verbose", "any value: tell each condition"}};

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

} // namespace

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

} // namespace gk::gateway
