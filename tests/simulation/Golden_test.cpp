#include "support/Golden.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace {

/// A file of expected output that says "old", and GK_UPDATE_GOLDEN as it was at the end.
struct GoldenFile : testing::Test {
  GoldenFile() { gk::test::writeFile(file, "old"); }
  ~GoldenFile() override {
    if (former) {
      setenv(kVariable, former->c_str(), 1);
    } else {
      unsetenv(kVariable);
    }
  }

  static constexpr const char* kVariable = "GK_UPDATE_GOLDEN";
  const std::optional<std::string> former = std::getenv(kVariable) != nullptr
                                                ? std::optional<std::string>(std::getenv(kVariable))
                                                : std::nullopt;
  const gk::test::TemporaryFolder folder;
  const std::filesystem::path file = folder.file("expected.jsonl");
};

TEST_F(GoldenFile, StaysAsItIsUnlessAnUpdateIsAskedFor) {
  for (const char* value : {"", "0", "no"}) {
    setenv(kVariable, value, 1);
    gk::test::updateGolden("new", file);
    EXPECT_EQ(gk::test::readFile(file), "old") << value;
  }
  unsetenv(kVariable);
  gk::test::updateGolden("new", file);
  EXPECT_EQ(gk::test::readFile(file), "old");
}

TEST_F(GoldenFile, FailsTheTestThatUpdatesIt) {
  setenv(kVariable, "1", 1);
  EXPECT_NONFATAL_FAILURE(gk::test::updateGolden("new", file), "updated");
  EXPECT_EQ(gk::test::readFile(file), "new");
  gk::test::updateGolden("new", file); // It is what is expected now.
}

} // namespace
