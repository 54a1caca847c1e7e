#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace gk::test {

/// A variable of the environment, for this process and the programs that it starts, as long as this
/// object lives.
class Environment {
public:
  Environment(std::string name, const std::string& value) : fName(std::move(name)) {
    if (const char* former = std::getenv(fName.c_str())) {
      fFormer = former;
    }
    ::setenv(fName.c_str(), value.c_str(), 1);
  }
  ~Environment() {
    if (fFormer) {
      ::setenv(fName.c_str(), fFormer->c_str(), 1);
    } else {
      ::unsetenv(fName.c_str());
    }
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

private:
  std::string fName;
  std::optional<std::string> fFormer;
};

} // namespace gk::test
