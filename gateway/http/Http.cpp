#include "gateway/http/Http.h"

#include "messages/json/JsonWriter.h"

#include <algorithm>

namespace gk::gateway {

namespace {

std::optional<unsigned> hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return static_cast<unsigned>(c - '0');
  }
  if (c >= 'a' && c <= 'f') {
    return static_cast<unsigned>(c - 'a') + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return static_cast<unsigned>(c - 'A') + 10;
  }
  return std::nullopt;
}

std::optional<std::string> decode(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      if (text.size() - i < 3) {
        return std::nullopt;
      }
      const auto high = hexDigit(text[i + 1]);
      const auto low = hexDigit(text[i + 2]);
      if (!high || !low) {
        return std::nullopt;
      }
      c = static_cast<char>(*high * 16 + *low);
      i += 2;
    }
    if (c == '\0') {
      return std::nullopt;
    }
    decoded += c;
  }
  return decoded;
}

} // namespace

std::string_view Target::find(std::string_view name) const {
  const auto found =
      std::ranges::find_if(query, [&](const auto& one) { return one.first == name; });
  return found != query.end() ? std::string_view(found->second) : std::string_view();
}

std::optional<Target> parseTarget(std::string_view text) {
  const std::size_t mark = std::min(text.find('?'), text.size());
  std::optional<std::string> path = decode(text.substr(0, mark));
  if (!path || !path->starts_with('/')) {
    return std::nullopt;
  }
  Target target{*std::move(path), {}};
  std::string_view rest = text.substr(std::min(mark + 1, text.size()));
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find('&'));
    rest.remove_prefix(std::min(pair.size() + 1, rest.size()));
    const std::size_t equals = std::min(pair.find('='), pair.size());
    std::optional<std::string> name = decode(pair.substr(0, equals));
    std::optional<std::string> value = decode(pair.substr(std::min(equals + 1, pair.size())));
    if (!name || !value) {
      return std::nullopt;
    }
    target.query.emplace_back(*std::move(name), *std::move(value));
  }
  return target;
}

HttpResponse errorResponse(unsigned status, std::string_view message) {
  HttpResponse response;
  response.status = status;
  messages::JsonWriter(response.body)
      .beginObject()
      .key("error")
      .beginObject()
      .key("message")
      .text(message)
      .endObject()
      .endObject();
  return response;
}

} // namespace gk::gateway
