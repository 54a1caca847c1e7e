#include "gateway/robot/SubscriberLimit.h"

namespace gk::gateway {

std::string SubscriberLimit::admit(const std::string& module, const std::string& method,
                                   const std::vector<GK::GKValue>& arguments) {
  const bool isSubscription = method == "subscribe";
  if ((!isSubscription && method != "unsubscribe") || arguments.empty() ||
      arguments[0].type() != GK::GKValue::Type::String) {
    return {};
  }
  const std::string& name = arguments[0].toString();
  if (isSubscription && name.size() > fNames) {
    return "a subscriber's name has at most " + std::to_string(fNames) + " bytes, not " +
           std::to_string(name.size());
  }
  const std::lock_guard lock(fMutex);
  if (!isSubscription) {
    fKnown.erase({module, name});
  } else if (fKnown.size() >= fSubscribers && !fKnown.contains({module, name})) {
    return "clients have subscribed under " + std::to_string(fSubscribers) +
           " names, and may add no more";
  } else {
    fKnown.emplace(module, name);
  }
  return {};
}

} // namespace gk::gateway
