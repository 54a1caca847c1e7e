#include "app/test/FindTests.h"

#include "formats/recording/TestFile.h"

#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

namespace gk::app {

namespace {

namespace fs = std::filesystem;

using Found = std::map<std::string, TestCase>;

/// The ending of a golden file that a failed test leaves beside it is no input's anyway.
bool isFile(const std::string& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

/// Folders that hold what others have made.
bool isPassedOver(const fs::path& folder) {
  const std::string name = folder.filename().string();
  std::error_code error;
  return name.starts_with('.') || name == "node_modules" ||
         fs::exists(folder / "CMakeCache.txt", error);
}

TestCase testOf(const std::string& input) {
  TestCase test;
  test.input = input;
  test.golden = formats::goldenOf(input);
  test.hasGolden = isFile(test.golden);
  return test;
}

bool isTest(const TestCase& test) {
  return test.hasGolden || isFile(formats::companionOf(test.input)) ||
         (formats::isScenarioName(test.input) && formats::hasExpectations(test.input));
}

void add(Found& found, TestCase test) {
  TestCase& known = found.try_emplace(test.input, test).first->second;
  known.isNamed = known.isNamed || test.isNamed;
}

void addFile(Found& found, const std::string& path, bool isUpdate) {
  if (!formats::isInputName(path)) {
    throw PathError(path + ": is no input (.jsonl, .csv, .mcap)" +
                    (formats::isBesideInputs(path) ? ", but lies beside one" : ""));
  }
  TestCase test = testOf(path);
  test.isNamed = true;
  if (!isUpdate && !isTest(test)) {
    throw PathError(path +
                    ": nothing is expected of it: it has no line with \"expect\" or "
                    "\"never\", and there is neither " +
                    test.golden + " nor " + formats::companionOf(path));
  }
  add(found, std::move(test));
}

void addFolder(Found& found, const fs::path& folder) {
  std::error_code error;
  fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied,
                                         error);
  if (error) {
    throw PathError(folder.string() + ": " + error.message());
  }
  while (entry != fs::recursive_directory_iterator()) {
    std::error_code ignored;
    const std::string path = entry->path().lexically_normal().string();
    if (entry->is_directory(ignored)) {
      if (isPassedOver(entry->path())) {
        entry.disable_recursion_pending();
      }
    } else if (formats::isInputName(path) && isFile(path)) {
      TestCase test = testOf(path);
      if (isTest(test)) {
        add(found, std::move(test));
      }
    }
    entry.increment(error);
    if (error) {
      throw PathError(folder.string() + ": " + error.message());
    }
  }
}

} // namespace

std::vector<TestCase> findTests(const std::vector<std::string>& paths, bool isUpdate) {
  Found found;
  for (const std::string& path : paths) {
    std::error_code error;
    if (fs::is_directory(path, error)) {
      addFolder(found, fs::path(path).lexically_normal());
    } else if (isFile(path)) {
      addFile(found, fs::path(path).lexically_normal().string(), isUpdate);
    } else {
      throw PathError(
          path + ": " +
          (fs::exists(path, error) ? "is neither file nor folder" : "no such file or folder"));
    }
  }
  std::vector<TestCase> tests;
  tests.reserve(found.size());
  for (auto& [name, test] : found) {
    tests.push_back(std::move(test));
  }
  return tests;
}

} // namespace gk::app
