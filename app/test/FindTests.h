#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace gk::app {

/// An input that is tested.
struct TestCase {
  /// As it is told.
  std::string input;
  /// The file of its expected output, and whether there is one.
  std::string golden;
  bool hasGolden = false;
  /// It was named itself, not only a folder that it lies in.
  bool isNamed = false;
};

/// A path that cannot be tested; `what()` is one line.
class PathError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// The tests that paths stand for, sorted by name, each once. `isUpdate`: an input that is named
/// itself may be without anything that is expected of it. Raises `PathError`.
std::vector<TestCase> findTests(const std::vector<std::string>& paths, bool isUpdate);

} // namespace gk::app
