#include "extensions/ros2/Settings.h"

#include "messages/ros/Mapper.h"

#include <optional>
#include <stdexcept>

namespace gk::ros2 {

namespace {

constexpr const char* kPrefix = "Settings/GKRos2/";
constexpr double kMostRate = 1000.0;

/// The settings as they stand in the memory.
class Reading {
public:
  using Type = GK::GKValue::Type;

  explicit Reading(const GK::GKMemoryProxy& memory) : fMemory(memory) {}

  std::string text(const std::string& name, const std::string& usual) const {
    const std::optional<GK::GKValue> value = xValue(name);
    if (value && value->type() != Type::String) {
      xRefuse(name, "is a text");
    }
    return value ? value->toString() : usual;
  }

  /// As JSON has it, or in words.
  bool flag(const std::string& name, bool usual) const {
    const std::optional<GK::GKValue> value = xValue(name);
    if (!value) {
      return usual;
    }
    if (value->type() == Type::Bool) {
      return value->toBool();
    }
    const std::string word = value->type() == Type::String ? value->toString() : std::string();
    if (word != "on" && word != "off") {
      xRefuse(name, "is on or off");
    }
    return word == "on";
  }

  double rate(const std::string& name, double usual) const {
    const std::optional<GK::GKValue> value = xValue(name);
    if (!value) {
      return usual;
    }
    const bool isNumber = value->type() == Type::Int || value->type() == Type::Float;
    const double number = isNumber ? static_cast<double>(value->toFloat()) : 0.0;
    if (!(number > 0.0 && number <= kMostRate)) {
      xRefuse(name, "is a number above 0, to 1000");
    }
    return number;
  }

private:
  std::optional<GK::GKValue> xValue(const std::string& name) const {
    const std::string key = kPrefix + name;
    return fMemory.hasKey(key) ? std::optional(fMemory.getData(key)) : std::nullopt;
  }

  [[noreturn]] static void xRefuse(const std::string& name, const std::string& what) {
    throw std::invalid_argument(kPrefix + name + " " + what);
  }

  const GK::GKMemoryProxy& fMemory;
};

} // namespace

Settings readSettings(const GK::GKMemoryProxy& memory, const Environment& environment) {
  const Reading reading(memory);
  Settings settings;
  try {
    settings.space = messages::ros::namespaceOf(reading.text("Namespace", ""));
  } catch (const std::invalid_argument& error) {
    throw std::invalid_argument(std::string(kPrefix) + "Namespace: " + error.what());
  }
  settings.rate = reading.rate("Rate", settings.rate);
  settings.isTf = reading.flag("Tf", settings.isTf);
  const std::string graph = reading.text("Graph", "auto");
  const std::optional<GraphFormat> format = GraphFormat::named(graph);
  if (!format) {
    throw std::invalid_argument(std::string(kPrefix) + "Graph: " + graph +
                                " is none of auto, off, gid16 and gid24");
  }
  settings.graph = *format;
  settings.network = readNetwork(environment, reading.text("Interface", ""));
  const char* own = environment("CYCLONEDDS_URI");
  settings.configuration = configurationOf(settings.network, own != nullptr ? own : "");
  return settings;
}

} // namespace gk::ros2
