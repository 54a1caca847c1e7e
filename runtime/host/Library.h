#pragma once

#include "gk/GKBroker.h"
#include "runtime/host/LibraryNote.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

namespace gk::runtime {

/// The file of a module library that is named in the way of `--library`: with a "/" in it or ".so"
/// at its end it is a path; otherwise the name of libNAME.so in the first of `folders` that has it.
/// Raises `LoadError`, which lists the folders.
std::string findLibrary(const std::string& name, const std::vector<std::string>& folders);
/// Whether such a name is a path.
bool isLibraryPath(const std::string& name);

/// A loaded module library. For one thread.
class Library {
public:
  /// Opens the library, whose note was looked at before any of its code runs. Raises `LoadError`
  /// when there is no such library, it does not fit or has no entry.
  explicit Library(const std::string& path);
  /// Closes the library. Its modules must be gone.
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /// Has the library create its modules in `broker`. Raises `LoadError`; the broker then keeps the
  /// modules created so far.
  void createModules(const boost::shared_ptr<GK::GKBroker>& broker);

private:
  using CreateModule = int (*)(boost::shared_ptr<GK::GKBroker>);
  using CloseModule = int (*)();

  std::string fPath;
  void* fHandle = nullptr;
  CreateModule fCreate = nullptr;
};

} // namespace gk::runtime
