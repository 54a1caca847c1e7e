#pragma once

#include "gk/GKClock.h"
#include "gk/GKError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace GK::test {

/// The error that `action` raises; a failure of the test when it raises none.
template <class Action> GKError errorOf(const Action& action) {
  try {
    action();
  } catch (const GKError& error) {
    return error;
  }
  ADD_FAILURE() << "no GKError was raised";
  return GKError("", "", "");
}

/// A `GKError` of `module` and `method` whose description fits.
template <class Description>
auto IsError(const std::string& module, const std::string& method, Description description) {
  return testing::AllOf(testing::Property("module", &GKError::getModule, module),
                        testing::Property("method", &GKError::getMethod, method),
                        testing::Property("description", &GKError::getDescription, description));
}

/// The error of an argument of type `actual` where `wanted` was needed.
inline auto IsRefusal(const std::string& actual, const std::string& wanted) {
  return IsError("convertFromGKValue", "convertFromGKValue",
                 "Parameter type is " + actual + " instead of " + wanted);
}

/// An input whose steps the test writes down beforehand, in the order of their times.
class ScriptedInput : public GKInput {
public:
  ScriptedInput& at(GKMicros time, std::function<void()> action) {
    fSteps.emplace_back(time, std::move(action));
    return *this;
  }

  std::optional<GKMicros> next() override {
    return fApplied < fSteps.size() ? std::optional(fSteps[fApplied].first) : std::nullopt;
  }
  void apply() override { fSteps[fApplied++].second(); }

  std::size_t applied() const { return fApplied; }

private:
  std::vector<std::pair<GKMicros, std::function<void()>>> fSteps;
  std::size_t fApplied = 0;
};

} // namespace GK::test
