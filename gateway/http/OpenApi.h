#pragma once

#include "gateway/http/Exchange.h"
#include "gateway/robot/Robot.h"

#include <span>
#include <string>

namespace gk::gateway {

/// The HTTP interface of this host as an OpenAPI 3.1 document
/// (https://spec.openapis.org/oas/v3.1.0): made from the table by which requests are answered and
/// from what is bound, so it tells what is there. Any thread.
std::string describeApi(const Robot& robot, std::span<const Route> routes,
                        const std::string& version);

} // namespace gk::gateway
