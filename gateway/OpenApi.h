#pragma once

#include "gateway/Robot.h"

#include <string>

namespace gk::gateway {

/// The HTTP interface of this host as an OpenAPI 3.1 document
/// (https://spec.openapis.org/oas/v3.1.0): made from the table that requests are answered by and
/// from what is bound, so it tells what is there. Any thread.
std::string describeApi(const Robot& robot, const std::string& version);

} // namespace gk::gateway
