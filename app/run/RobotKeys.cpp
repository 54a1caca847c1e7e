#include "app/run/RobotKeys.h"

#include "devices/DeviceKeys.h"
#include "formats/json/JsonValue.h"

#include <fmt/format.h>

#include <string>

namespace gk::app {

namespace {

std::string rangeText(const devices::DeviceKey& key) {
  return key.range ? fmt::format("{:g} to {:g}", key.range->least, key.range->most) : "";
}

std::string startText(const devices::DeviceKey& key) {
  std::string text;
  formats::appendJson(text, key.start);
  return text;
}

} // namespace

void listKeys(bool isSimulated) {
  constexpr const char* row = "{:<62} {:<7} {:<6} {:<20} {:<8} {}\n";
  fmt::print(row, "KEY", "TYPE", "UNIT", "RANGE", "START", "MEANING");
  for (const devices::DeviceKey& key :
       isSimulated ? devices::simulatedKeys() : devices::deviceKeys()) {
    fmt::print(row, key.name, devices::typeName(key.type), key.unit, rangeText(key), startText(key),
               key.meaning);
  }
}

} // namespace gk::app
