#include "gk/GKModule.h"

#include "gk/GKVersion.h"

namespace GK {

GKModule::GKModule(const boost::shared_ptr<GKBroker>& broker, std::string name)
    : GKModuleCore(broker, std::move(name)) {}

GKModule::~GKModule() = default;

void GKModule::execute() {}

std::string GKModule::version() {
  return GK_PLATFORM_VERSION;
}

void GKModule::exit() {}

std::string GKModule::httpGet() {
  std::string text;
  for (const char c : getModuleDescription()) {
    switch (c) {
    case '&':
      text += "&amp;";
      break;
    case '<':
      text += "&lt;";
      break;
    case '\n':
      text += "<br />";
      break;
    default:
      text += c;
    }
  }
  return "<html><body><h3>" + getName() + "</h3>" + text + "</body></html>";
}

void GKModule::init() {}

void GKModule::stop(const int&) {}

void GKModule::xExitOnce() {
  if (!fExited.exchange(true)) {
    exit();
  }
}

} // namespace GK
