#pragma once

namespace gk::app {

/// Lists on standard output the keys that device layers provide: those of the simulated robot, or
/// those that every device layer has.
void listKeys(bool isSimulated);

} // namespace gk::app
