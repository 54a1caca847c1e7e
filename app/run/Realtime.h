#pragma once

namespace gk::app {

/// Locks the process's memory and finds out whether loops may have a real-time priority. Warns on
/// standard error of what is not permitted, a line each. Returns the priority, 0 for none.
int prepareForRealtime();

} // namespace gk::app
