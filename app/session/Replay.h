#pragma once

#include "app/session/FileTests.h"
#include "app/session/Session.h"
#include "app/session/SessionOptions.h"

namespace gk::app {

/// Runs files once through the module library in virtual time. `tests`: what they expect; their
/// options are in `session` already. `isAsInput`: recorded runs are played as any other file.
/// Complains in one line on standard error; returns the exit code.
int runReplay(const SessionOptions& session, const FileTests& tests, SessionView view,
              bool isAsInput);

} // namespace gk::app
