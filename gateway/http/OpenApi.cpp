#include "gateway/http/OpenApi.h"

#include "messages/json/JsonWriter.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace gk::gateway {

namespace {

std::string lower(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

/// "GET /api/v1/memory/{key}" -> "get_api_v1_memory_key".
std::string operationId(const Route& route) {
  std::string id = lower(route.method);
  bool isWord = false;
  for (const char c : route.path) {
    const bool isLetter = std::isalnum(static_cast<unsigned char>(c)) != 0;
    if (isLetter && !isWord) {
      id += '_';
    }
    if (isLetter) {
      id += c;
    }
    isWord = isLetter;
  }
  return id;
}

void appendParameters(messages::JsonWriter& json, const Route& route) {
  json.key("parameters").beginArray();
  const std::size_t brace = route.path.find('{');
  if (brace != std::string_view::npos) {
    const std::string_view name = route.path.substr(brace + 1, route.path.size() - brace - 2);
    json.beginObject().key("name").text(name).key("in").text("path");
    json.key("required").boolean(true);
    json.key("schema").beginObject().key("type").text("string").endObject().endObject();
  }
  for (const auto& [name, meaning] : route.query) {
    json.beginObject().key("name").text(name).key("in").text("query");
    json.key("description").text(meaning);
    json.key("schema").beginObject().key("type").text("string").endObject().endObject();
  }
  json.endArray();
}

void appendResponse(messages::JsonWriter& json, std::string_view status,
                    std::string_view description, std::string_view type) {
  json.key(status).beginObject().key("description").text(description);
  json.key("content").beginObject().key(type).beginObject();
  json.key("schema").raw("{}").endObject().endObject().endObject();
}

void appendOperation(messages::JsonWriter& json, const Route& route) {
  json.key(lower(route.method)).beginObject();
  json.key("operationId").text(operationId(route)).key("summary").text(route.summary);
  appendParameters(json, route);
  if (route.method != "GET") {
    const bool isCall = route.path == "/rpc";
    json.key("requestBody").beginObject().key("required").boolean(true);
    json.key("content").beginObject().key("application/json").beginObject().key("schema");
    json.raw(isCall ? R"({"$ref":"#/components/schemas/Request"})" : "{}");
    json.endObject().endObject().endObject();
  }
  if (route.isOpen) {
    json.key("security").beginArray().endArray();
  }
  json.key("responses").beginObject();
  appendResponse(json, "200", "As asked", route.answerType);
  appendResponse(json, "4XX", "Why it was refused", "application/json");
  appendResponse(json, "default", "Why it failed", "application/json");
  json.endObject().endObject();
}

/// One shape of a call for each bound method, overloads together.
void appendCalls(messages::JsonWriter& json, const Robot& robot) {
  json.key("Request").beginObject().key("oneOf").beginArray();
  for (const auto& module : robot.broker().getModules()) {
    const std::vector<GK::GKMethodDescription> methods = module->getMethods();
    std::vector<std::string> done;
    for (const GK::GKMethodDescription& method : methods) {
      if (std::ranges::find(done, method.name) != done.end()) {
        continue;
      }
      done.push_back(method.name);
      std::vector<GK::GKMethodDescription> overloads;
      std::ranges::copy_if(methods, std::back_inserter(overloads),
                           [&](const auto& one) { return one.name == method.name; });
      json.beginObject().key("type").text("object");
      json.key("description").text(method.description);
      json.key("required").beginArray().text("jsonrpc").text("method").endArray();
      json.key("properties").beginObject();
      json.key("jsonrpc").beginObject().key("const").text("2.0").endObject();
      json.key("id").beginObject().key("type").beginArray();
      json.text("string").text("number").text("null").endArray().endObject();
      json.key("method").beginObject().key("const");
      json.text(module->getName() + "." + method.name).endObject();
      json.key("params").beginObject().key("oneOf").beginArray();
      json.raw(R"({"type":"array"})").raw(schemaOfParams(overloads));
      json.endArray().endObject().endObject().endObject();
    }
  }
  json.endArray().endObject();
}

} // namespace

std::string describeApi(const Robot& robot, std::span<const Route> routes,
                        const std::string& version) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject().key("openapi").text("3.1.0");
  json.key("info").beginObject().key("title").text("gksensors").key("version").text(version);
  json.key("license").raw(R"({"name":"Apache License 2.0","identifier":"Apache-2.0"})").endObject();
  // Where the document itself was found.
  json.key("servers").raw(R"([{"url":"/"}])");
  json.key("security").raw(R"([{},{"token":[]}])");
  json.key("paths").beginObject();
  std::vector<std::string_view> done;
  for (const Route& route : routes) {
    if (std::ranges::find(done, route.path) != done.end()) {
      continue;
    }
    done.push_back(route.path);
    json.key(route.path).beginObject();
    for (const Route& same : routes) {
      if (same.path == route.path) {
        appendOperation(json, same);
      }
    }
    json.endObject();
  }
  json.endObject().key("components").beginObject();
  json.key("securitySchemes").raw(R"({"token":{"type":"http","scheme":"bearer"}})");
  json.key("schemas").beginObject();
  appendCalls(json, robot);
  json.endObject().endObject().endObject();
  return text;
}

} // namespace gk::gateway
