#include "devices/ClientLimits.h"

#include <algorithm>
#include <charconv>

namespace gk::devices {

namespace {

struct Named {
  std::string_view name;
  std::size_t ClientLimits::*limit;
};

constexpr Named kLimits[] = {{"names", &ClientLimits::names},
                             {"values", &ClientLimits::values},
                             {"keys", &ClientLimits::keys},
                             {"events", &ClientLimits::events},
                             {"answer", &ClientLimits::answer}};

} // namespace

std::string readLimit(std::string_view text, ClientLimits& limits) {
  const std::string_view name = text.substr(0, text.find('='));
  const std::string_view digits = text.substr(std::min(name.size() + 1, text.size()));
  const auto* const found = std::ranges::find(kLimits, name, &Named::name);
  if (found == std::end(kLimits)) {
    std::string names;
    for (const Named& one : kLimits) {
      names += (names.empty() ? "" : ", ") + std::string(one.name);
    }
    return std::string(text) + ": there is no such limit, only " + names + ", as in keys=20000";
  }
  std::size_t limit = 0;
  const auto [end, error] = std::from_chars(digits.begin(), digits.end(), limit);
  if (error != std::errc() || end != digits.end() || limit == 0) {
    return std::string(text) + ": a limit is a number from 1 on";
  }
  limits.*found->limit = limit;
  return {};
}

std::string limitsText(const ClientLimits& limits) {
  std::string text;
  for (const Named& one : kLimits) {
    text +=
        (text.empty() ? "" : ",") + std::string(one.name) + "=" + std::to_string(limits.*one.limit);
  }
  return text;
}

ClientLimits limitsOf(std::string_view text) {
  ClientLimits limits;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(','), text.size());
    readLimit(text.substr(0, end), limits);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return limits;
}

} // namespace gk::devices
