#include "runtime/host/Library.h"

#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <exception>
#include <filesystem>
#include <memory>
#include <system_error>

namespace gk::runtime {

namespace {

constexpr const char* kCreateEntry = "_createModule";
constexpr const char* kCloseEntry = "_closeModule";

LoadError failure(const std::string& path, const std::string& why) {
  return LoadError("cannot load " + path + ": " + why);
}

/// A function or variable as it stands in sources.
std::string demangled(const std::string& symbol) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(
      abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), &std::free);
  return text != nullptr ? text.get() : symbol;
}

/// The loader's last complaint, without the path that it begins with.
std::string loaderText(const std::string& path) {
  const char* text = dlerror();
  std::string why = text != nullptr ? text : "unknown reason";
  const std::string prefix = path + ": ";
  why = why.starts_with(prefix) ? why.substr(prefix.size()) : why;
  const std::string missing = "undefined symbol: ";
  if (why.starts_with(missing)) {
    const std::string symbol = why.substr(missing.size());
    return "it needs " + demangled(symbol.substr(0, symbol.find_first_of(",\t "))) +
           ", which neither the platform nor a library that it is linked with has";
  }
  return why;
}

} // namespace

bool isLibraryPath(const std::string& name) {
  return name.find('/') != std::string::npos || name.ends_with(".so");
}

std::string findLibrary(const std::string& name, const std::vector<std::string>& folders) {
  if (isLibraryPath(name)) {
    return name;
  }
  std::string searched;
  for (const std::string& folder : folders) {
    const std::filesystem::path file = std::filesystem::path(folder) / ("lib" + name + ".so");
    std::error_code ignored;
    if (std::filesystem::exists(file, ignored)) {
      return file.string();
    }
    searched += (searched.empty() ? "" : ", ") + folder;
  }
  throw failure(name, "there is no lib" + name + ".so in " +
                          (searched.empty() ? "any folder" : searched));
}

Library::Library(const std::string& path) : fPath(path) {
  // With a folder in its name the loader looks nowhere else.
  const std::string absolute = std::filesystem::absolute(path).string();
  checkLibrary(path);
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
