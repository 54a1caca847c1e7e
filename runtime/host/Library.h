#pragma once

#include "gk/GKBroker.h"

#include <boost/shared_ptr.hpp>

#include <stdexcept>
#include <string>

namespace gk::runtime {

/// A module library cannot be loaded; `what()` names the file and the reason, on one line.
class LoadError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// A loaded module library. For one thread.
class Library {
public:
  /// Opens the library. Raises `LoadError` when there is no such library or it has no entry.
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
