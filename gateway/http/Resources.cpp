#include "gateway/http/Resources.h"

#include "gateway/http/ResourceHandlers.h"
#include "gateway/http/ResourceTable.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace gk::gateway {

namespace {

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

/// About the host as a whole (RFC 9110, section 9.3.7).
HttpResponse optionsOf(bool isKnown) {
  if (!isKnown) {
    return errorResponse(403, "this host is not known by the name that the request gives it");
  }
  HttpResponse response;
  response.status = 204;
  response.headers.emplace_back("Allow", "GET, HEAD, POST, PUT, OPTIONS");
  return response;
}

} // namespace

Resources::Resources(Access& access, CallRunner& runner, Counters& counters, HostFigures figures,
                     const VerdictWatch& verdict, Past& past)
    : fFigures(std::move(figures)),
      fRpc(runner, counters, fFigures.answer, &fMethods), fParts{access,   runner,         counters,
                                                                 fRpc,     verdict,        past,
                                                                 fFigures, resourceTable()} {
  if (fFigures.playback != nullptr) {
    addPlaybackMethods(fMethods, *fFigures.playback);
  }
}

std::optional<HttpResponse> Resources::refuse(const HttpRequest& request, const Target& target,
                                              bool isOpen) {
  std::optional<HttpResponse> refusal;
  if (!fParts.access.isHostAllowed(request.host)) {
    refusal = errorResponse(403, "this host is not known by the name that the request gives it");
  } else if (!fParts.access.isOriginAllowed(request.origin)) {
    refusal = errorResponse(403, "pages of this origin may not use the robot");
  } else if (!isOpen &&
             !fParts.access.isAuthorised({request.host, request.origin, request.authorization,
                                          request.cookie, target.find("ticket")})) {
    refusal = errorResponse(401, "a token is needed");
    refusal->headers.emplace_back("WWW-Authenticate", "Bearer");
    // A page that has not logged in yet asks without any.
    refusal->isGuessRefused = !request.authorization.empty() || !target.find("ticket").empty();
  }
  if (refusal) {
    fParts.counters.refusals.fetch_add(1, std::memory_order_relaxed);
  }
  return refusal;
}

void Resources::handle(std::shared_ptr<const Robot> robot, HttpRequest request, Respond respond) {
  if (request.target == "*" && request.method == "OPTIONS") {
    respond(optionsOf(fParts.access.isHostAllowed(request.host)));
    return;
  }
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
  for (const Route& route : fParts.routes) {
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
    answerFile(request, *target, respond);
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
  chosen->handler(
      {fParts, std::move(robot), request, *target, std::move(name), std::move(respond)});
}

} // namespace gk::gateway
