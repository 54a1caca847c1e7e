#include "runtime/host/Library.h"

#include <dlfcn.h>
#include <exception>
#include <filesystem>

namespace gk::runtime {

namespace {

constexpr const char* kCreateEntry = "_createModule";
constexpr const char* kCloseEntry = "_closeModule";

LoadError failure(const std::string& path, const std::string& why) {
  return LoadError("cannot load " + path + ": " + why);
}

/// The loader's last complaint, without the path that it begins with.
std::string loaderText(const std::string& path) {
  const char* text = dlerror();
  std::string why = text != nullptr ? text : "unknown reason";
  const std::string prefix = path + ": ";
  return why.starts_with(prefix) ? why.substr(prefix.size()) : why;
}

} // namespace

Library::Library(const std::string& path) : fPath(path) {
  // With a folder in its name the loader looks nowhere else.
  const std::string absolute = std::filesystem::absolute(path).string();
  fHandle = dlopen(absolute.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (fHandle == nullptr) {
    throw failure(path, loaderText(absolute));
  }
  fCreate = reinterpret_cast<CreateModule>(dlsym(fHandle, kCreateEntry));
  if (fCreate == nullptr) {
    dlclose(fHandle);
    throw failure(path, std::string("it has no entry ") + kCreateEntry);
  }
}

Library::~Library() {
  if (const auto close = reinterpret_cast<CloseModule>(dlsym(fHandle, kCloseEntry))) {
    close();
  }
  dlclose(fHandle);
}

void Library::createModules(const boost::shared_ptr<GK::GKBroker>& broker) {
  int result = 0;
  try {
    result = fCreate(broker);
  } catch (const std::exception& error) {
    throw failure(fPath, error.what());
  } catch (...) {
    throw failure(fPath, std::string(kCreateEntry) + " threw something that is no exception class");
  }
  if (result != 0) {
    throw failure(fPath, std::string(kCreateEntry) + " returned " + std::to_string(result));
  }
}

} // namespace gk::runtime
