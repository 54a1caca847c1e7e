#pragma once

#include "gateway/figures/Counters.h"
#include "gateway/figures/RecordingFigures.h"
#include "gateway/robot/ModuleStatus.h"
#include "gateway/robot/Robot.h"

#include <cstddef>
#include <string>
#include <vector>

namespace gk::gateway {

/// The figures of the host in Prometheus' text format, version 0.0.4
/// (https://prometheus.io/docs/instrumenting/exposition_formats/). Base units; labels only of sets
/// that do not grow with use. `recording` may be empty; `status` is what modules tell of
/// themselves, of which numbers are shown. Any thread.
std::string metricsText(const Robot& robot, const Counters& counters, std::size_t callsRunning,
                        const std::string& version, double startTime,
                        const RecordingSource& recording, const std::vector<StatusRow>& status);

} // namespace gk::gateway
