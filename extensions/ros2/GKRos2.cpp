#include "extensions/ros2/GKRos2.h"

#include "extensions/ros2/Participant.h"
#include "extensions/ros2/Publisher.h"
#include "extensions/ros2/Settings.h"
#include "gk/GKClock.h"
#include "gk/GKError.h"
#include "gk/GKMemory.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModuleLibrary.h"

#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace gk::ros2 {

namespace {

constexpr int kOk = 0;
constexpr int kWarning = 1;

/// A number as it goes into a status: beyond 32 bits it stays where it is.
GK::GKValue numberOf(std::uint64_t number) {
  constexpr std::uint64_t most = std::numeric_limits<std::int32_t>::max();
  return GK::GKValue(static_cast<std::int32_t>(std::min(number, most)));
}

GK::GKValue figure(const char* name, std::uint64_t number, int level, const char* text) {
  return GK::GKValue(std::vector<GK::GKValue>{GK::GKValue(name), GK::GKValue(""), numberOf(number),
                                              GK::GKValue(level), GK::GKValue(text)});
}

} // namespace

GKRos2::GKRos2(const boost::shared_ptr<GK::GKBroker>& broker) : GKModule(broker, "GKRos2") {
  setModuleDescription("Lets programs of ROS 2 see the robot.");

  functionName("status", getName(), "Tells what was published.");
  setReturn("figures", "Array of [name, unit, value, level, text].");
  bindMethod(&GKRos2::status, static_cast<const GKRos2*>(this));
}

GKRos2::~GKRos2() = default;

void GKRos2::init() {
  // Readers have real time only. What was recorded with this module is replayed with it.
  if (GK::GKClock::instance().isVirtual()) {
    return;
  }
  const auto memory =
      getParentBroker()->getSpecialisedProxy<GK::GKMemoryProxy>(GK::GKMemory::kName);
  const auto service =
      boost::dynamic_pointer_cast<GK::GKMemory>(getParentBroker()->findModule(GK::GKMemory::kName));
  try {
    const Settings settings =
        readSettings(*memory, [](const char* variable) { return std::getenv(variable); });
    auto publisher = std::make_unique<Publisher>(settings, service->store());
    const std::lock_guard<std::mutex> lock(fMutex);
    fPublisher = std::move(publisher);
  } catch (const std::exception& error) {
    throw GK::GKError(getName(), "init", error.what());
  }
}

void GKRos2::exit() {
  // Its end takes a while, in which somebody may still ask.
  std::unique_ptr<Publisher> publisher;
  const std::lock_guard<std::mutex> lock(fMutex);
  publisher.swap(fPublisher);
}

GK::GKValue GKRos2::status() const {
  const std::lock_guard<std::mutex> lock(fMutex);
  if (fPublisher == nullptr) {
    return GK::GKValue(std::vector<GK::GKValue>{});
  }
  const Publisher::Figures figures = fPublisher->figures();
  return GK::GKValue(std::vector<GK::GKValue>{
      figure("messages", figures.messages, kOk, "messages published"),
      figure("readers", figures.readers, kOk, "readers of all topics"),
      figure("dropped", figures.dropped, figures.dropped > 0 ? kWarning : kOk,
             "events and log lines that were lost"),
      figure("refused", figures.refused, figures.refused > 0 ? kWarning : kOk,
             "messages that DDS did not take")});
}

} // namespace gk::ros2

GK_MODULE_LIBRARY(gk::ros2::GKRos2)
