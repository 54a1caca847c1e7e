#pragma once

#include "gk/GKApi.h"

#include <stdexcept>
#include <string>

namespace GK {

/// The platform's one exception: which module failed in which method, and why.
///
/// Keeps the place of the raising statement; pass an empty file and line 0 to leave it out.
class GK_API GKError : public std::runtime_error {
public:
  GKError(std::string module, std::string method, std::string description,
          const char* file = __builtin_FILE(), int line = __builtin_LINE());
  GKError(const GKError&);
  GKError(GKError&&) noexcept;
  GKError& operator=(const GKError&);
  GKError& operator=(GKError&&) noexcept;
  ~GKError() override;

  const std::string& getModule() const noexcept { return fModule; }
  const std::string& getMethod() const noexcept { return fMethod; }
  const std::string& getDescription() const noexcept { return fDescription; }
  const char* getFile() const noexcept { return fFile; }
  int getLine() const noexcept { return fLine; }

  /// "module::method: description", on one line; the same text as `what()`.
  std::string toString() const;

private:
  std::string fModule;
  std::string fMethod;
  std::string fDescription;
  const char* fFile;
  int fLine;
};

} // namespace GK
