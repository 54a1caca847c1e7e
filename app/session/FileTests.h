#pragma once

#include "app/session/SessionOptions.h"
#include "formats/lines/Expectation.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace gk::app {

/// What the inputs of a run, and the files beside them, expect of it and want for it.
struct FileTests {
  std::vector<formats::Expectation> expectations;
  std::optional<formats::FileOptions> options;
  /// The files beside inputs that were read.
  std::vector<std::string> companions;
  /// Those of them that make the run go on.
  std::vector<std::string> ends;
};

/// Reads it. `isLeftOut`: nothing is expected and nothing beside the inputs is read. Raises
/// `InputError`.
FileTests readFileTests(const std::vector<std::string>& files, bool isLeftOut);

/// Puts the options of a file before those that stand on the command line. Returns the kinds of
/// lines that its expected output holds, as for "--only"; empty for all. Raises `InputError`.
std::string applyFileOptions(const FileTests& tests, SessionOptions& session);

} // namespace gk::app
