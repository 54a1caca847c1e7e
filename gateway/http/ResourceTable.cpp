#include "gateway/http/ResourceTable.h"

#include "gateway/http/ResourceHandlers.h"

namespace gk::gateway {

namespace {

constexpr std::pair<std::string_view, std::string_view> kKeyQuery[] = {
    {"prefix", "only keys that begin so"},
    {"contains", "only keys that contain this"},
    {"limit", "at most so many, 1 to 10000; 100 when absent"},
    {"after", "only keys that come after this one: the \"next\" of the page before"}};
constexpr std::pair<std::string_view, std::string_view> kEventQuery[] = {
    {"after", "only events that come after this one: the \"next\" of the page before"}};
constexpr std::pair<std::string_view, std::string_view> kHostQuery[] = {
    {"verbose", "any value: tell of the loops' last minute and of each client as well"}};
constexpr std::pair<std::string_view, std::string_view> kReadyQuery[] = {
    {"verbose", "any value: tell each condition"}};

constexpr std::pair<std::string_view, std::string_view> kPastQuery[] = {
    {"from", "seconds since the start; the oldest that is kept when absent"},
    {"to", "seconds since the start; the newest when absent"},
    {"step", "seconds between two samples, 0.1 when absent; 0 for events alone"}};

} // namespace

std::span<const Route> resourceTable() {
  static constexpr Route table[] = {
      {"POST", "/rpc", "Calls bound methods: JSON-RPC 2.0", &answerCall},
      {"GET", "/api/v1/host", "The host: version, clock, loops, clients", &answerHost, false,
       kHostQuery},
      {"GET", "/api/v1/modules", "All modules", &answerModules},
      {"GET", "/api/v1/modules/{name}", "A module: methods, parameters, events", &answerModule},
      {"GET", "/api/v1/memory", "Memory keys and their values, sorted", &answerKeys, false,
       kKeyQuery},
      {"GET", "/api/v1/memory/{key}", "A memory key's value", &answerGetKey},
      {"PUT", "/api/v1/memory/{key}", "Writes a memory key; the body is the value", &answerPutKey},
      {"GET", "/api/v1/events", "All events: owner, count, last value and time", &answerEvents,
       false, kEventQuery},
      {"GET", "/api/v1/words", "What events say, in words for people", &answerWords},
      {"GET", "/api/v1/verdict", "What matters now, worst first", &answerVerdict},
      {"GET", "/api/v1/past", "What the last minutes were like: samples and events", &answerPast,
       false, kPastQuery},
      {"POST",
       "/api/v1/past/keep",
       "The last minutes as a recording: {\"seconds\": N}, or {} for all that is kept",
       &answerKeep,
       false,
       {},
       "application/octet-stream"},
      {"POST", "/api/v1/tickets", "A ticket for one WebSocket connection: /ws?ticket=...",
       &answerTicket},
      {"POST", "/login", "Opens a session for a browser: {\"token\": TOKEN}", &answerLogin, true},
      {"GET",
       "/status/{name}",
       "A module's own status page",
       &answerStatus,
       false,
       {},
       "text/html"},
      {"GET", "/openapi.json", "This description", &answerOpenApi},
      {"GET", "/metrics", "Figures for Prometheus", &answerMetrics, false, {}, "text/plain"},
      {"GET", "/livez", "Whether the process is alive", &answerAlive, true, {}, "text/plain"},
      {"GET", "/readyz", "Whether modules are loaded and tick", &answerReady, true, kReadyQuery,
       "text/plain"},
  };
  return table;
}

} // namespace gk::gateway
