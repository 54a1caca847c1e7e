#include "app/run/ListeningLibrary.h"

#include "runtime/host/Library.h"

#include <algorithm>

namespace gk::app {

std::string whyNoListener(const ListeningLibrary& library, const runtime::HostOptions& host,
                          bool isLockstep) {
  return host.isVirtual ? library.option + " needs real time, " +
                              (isLockstep ? "--lockstep" : "--speed max") + " has none"
                        : std::string();
}

void addListener(const ListeningLibrary& library, runtime::HostOptions& host) {
  if (std::ranges::find(host.libraries, library.name) != host.libraries.end()) {
    return;
  }
  try {
    runtime::findLibrary(library.name, host.libraryFolders);
  } catch (const runtime::LoadError& error) {
    throw runtime::LoadError(library.option + ": " + error.what() + " (package " + library.package +
                             ")");
  }
  host.libraries.insert(library.isFirst ? host.libraries.begin() : host.libraries.end(),
                        library.name);
}

} // namespace gk::app
