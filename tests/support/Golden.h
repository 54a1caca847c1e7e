#pragma once

#include "support/Program.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

namespace gk::test {

/// With GK_UPDATE_GOLDEN=1 files of expected output are written anew where they differ, and a test
/// that has written one fails: what was not compared has not passed. With any other value, and
/// without it, they are compared.
inline bool isGoldenUpdate() {
  const char* asked = std::getenv("GK_UPDATE_GOLDEN");
  return asked != nullptr && std::string_view(asked) == "1";
}

/// In an update: makes `expected` say `actual`, and fails when it did not. Otherwise does nothing.
inline void updateGolden(const std::string& actual, const std::filesystem::path& expected) {
  if (isGoldenUpdate() && (!std::filesystem::exists(expected) || readFile(expected) != actual)) {
    writeFile(expected, actual);
    ADD_FAILURE() << "updated " << expected << ": look at it, then run this test again";
  }
}

} // namespace gk::test
