#pragma once

#include "gateway/Resources.h"

#include <memory>
#include <string>

namespace gk::gateway {

/// One request on its way through a handler.
struct Resources::Exchange {
  std::shared_ptr<const Robot> robot;
  const HttpRequest& request;
  const Target& target;
  /// What stands for the braces of the route's path.
  std::string name;
  Respond respond;
};

} // namespace gk::gateway
