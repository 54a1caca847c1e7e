#include "gk/GKError.h"

namespace GK {

namespace {

std::string join(const std::string& module, const std::string& method,
                 const std::string& description) {
  return module + "::" + method + ": " + description;
}

} // namespace

GKError::GKError(std::string module, std::string method, std::string description, const char* file,
                 int line)
    : std::runtime_error(join(module, method, description)), fModule(std::move(module)),
      fMethod(std::move(method)), fDescription(std::move(description)), fFile(file), fLine(line) {}

GKError::GKError(const GKError&) = default;
GKError::GKError(GKError&&) noexcept = default;
GKError& GKError::operator=(const GKError&) = default;
GKError& GKError::operator=(GKError&&) noexcept = default;
GKError::~GKError() = default;

std::string GKError::toString() const {
  return what();
}

} // namespace GK
