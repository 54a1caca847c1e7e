#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// Which module libraries a run loads, and where they are.
namespace gk::app {

/// Our own library, which is loaded where nothing else is said.
inline constexpr const char* kOwnLibrary = "gksensors";

/// This program's file, links followed.
std::filesystem::path programFile();

/// The folder that bin/ lies in, in a build folder as when installed.
std::filesystem::path rootFolder();

/// Where libraries lie that are named without a path: the folders of GK_LIBRARY_PATH, then those of
/// the module libraries beside this program.
std::vector<std::string> libraryFolders();

/// What `--library` asks for, behind what others have named before: a name replaces those, and
/// `+NAME` adds to them. Additions stay marked.
std::vector<std::string> addLibraries(const std::vector<std::string>& before,
                                      const std::vector<std::string>& asked);

/// The names of such a list, without marks.
std::vector<std::string> libraryNames(const std::vector<std::string>& marked);

/// The libraries that a recording names, separated by commas, as names. Files of libraries are
/// looked for by their names: where they lay tells nothing on another machine.
std::vector<std::string> recordedLibraries(const std::string& text);

} // namespace gk::app
