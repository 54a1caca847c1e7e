#include "app/run/RobotKeys.h"

#include "messages/json/JsonValue.h"
#include "messages/keys/DeviceKeys.h"

#include <fmt/format.h>

#include <string>

namespace gk::app {

namespace {

std::string rangeText(const messages::DeviceKey& key) {
  return key.range ? fmt::format("{:g} to {:g}", key.range->least, key.range->most) : "";
}

std::string startText(const messages::DeviceKey& key) {
  std::string text;
  messages::appendJson(text, key.start);
  return text;
}

} // namespace

void listKeys(bool isSimulated) {
  constexpr const char* row = "{:<62} {:<7} {:<6} {:<20} {:<8} {}\n";
  fmt::print(row, "KEY", "TYPE", "UNIT", "RANGE", "START", "MEANING");
  for (const messages::DeviceKey& key :
       isSimulated ? messages::simulatedKeys() : messages::deviceKeys()) {
    fmt::print(row, key.name, messages::typeName(key.type), key.unit, rangeText(key),
               startText(key), key.meaning);
  }
}

} // namespace gk::app
