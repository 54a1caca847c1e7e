#pragma once

#include "formats/lines/Expectation.h"
#include "formats/lines/TestLine.h"

#include <optional>
#include <string>
#include <vector>

/// What stands in an input, or beside it, for who tests it.
namespace gk::formats {

// What is said of malformed files.
inline constexpr const char* kNoExpectation =
    R"(only "expect", "never", "end" and first "options" stand in a file beside an input)";
inline constexpr const char* kLateOptions = "\"options\" stands in the first line or nowhere";
inline constexpr const char* kReadOnce =
    "expectations stand in files that can be read twice, which a pipe cannot";

/// What a file expects of a run and wants for it.
struct TestFile {
  /// In the order of the lines.
  std::vector<Expectation> expectations;
  std::optional<FileOptions> options;
  /// It makes the run go on.
  bool hasEnd = false;
};

/// Reads these lines and passes over all others: they are for who plays the file. `isCompanion`: no
/// others may be there. Raises `InputError`.
TestFile readTestFile(const std::string& path, bool isCompanion);

/// Whether any line is an expectation, be it malformed. False for what cannot be read.
bool hasExpectations(const std::string& path);

/// False for pipes and devices.
bool canBeReadTwice(const std::string& path);

/// Files that lie beside an input: "folder/walk.csv.gz" -> "folder/walk.expect.jsonl".
std::string companionOf(const std::string& input);
/// "folder/walk.csv.gz" -> "folder/walk.expected.jsonl".
std::string goldenOf(const std::string& input);

/// Whether this is the name of one of these files, which are never inputs.
bool isBesideInputs(const std::string& path);

/// A kind of file that can be an input.
bool isInputName(const std::string& path);

/// A kind of input in which expectations may stand.
bool isScenarioName(const std::string& path);

} // namespace gk::formats
