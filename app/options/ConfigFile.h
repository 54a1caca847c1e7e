#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

/// Options that stand in a file.
namespace gk::app {

/// The name of the option that names such a file.
inline constexpr const char* kConfigOption = "--config";

/// A command line with the options of the files that it names in their places.
struct ConfiguredLine {
  std::vector<std::string> words;
  /// The file, and the names of its options as they stand among the words now: "--speed".
  std::string file;
  std::vector<std::string> fromFile;
};

/// Reads the file that `words` name for `command`, if it takes one and they do. What stands on the
/// command line replaces what the file says; settings and additional libraries come behind those of
/// the file. Options that only `gk run` has are passed over. Raises `CLI::ParseError`.
ConfiguredLine configured(const CLI::App& program, const CLI::App& command,
                          std::vector<std::string> words);

} // namespace gk::app
