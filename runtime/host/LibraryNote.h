#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace gk::runtime {

/// A module library cannot be loaded; `what()` names the file and the reason, on one line.
class LoadError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// What a module library was built for, as its note tells.
struct LibraryNote {
  /// "0.2", and the version "0.2.0" of the platform whose headers it was built with.
  std::string abi;
  std::string version;
  std::string cxxLibrary;
};

/// Reads the note of a module library without loading it. Raises `LoadError` for a file that cannot
/// be read, that is no shared library for this machine, has no note, or was built for another
/// platform than this one.
LibraryNote checkLibrary(const std::string& path);

} // namespace gk::runtime
