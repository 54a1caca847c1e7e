#pragma once

#include "app/session/FileTests.h"
#include "app/session/SessionOptions.h"
#include "runtime/host/Host.h"

namespace gk::app {

/// The host that plays these files, and what stands beside them, in virtual time, until they have
/// ended unless the options say otherwise. `tests`: their options are in `options` already. A
/// recorded run is repeated as it was, unless it is to be played as input. Raises `InputError`, and
/// `FormatError` for options that do not go with a recorded run.
runtime::HostOptions replayHost(const SessionOptions& options, const FileTests& tests,
                                bool isAsInput);

} // namespace gk::app
