#include "app/session/Libraries.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <sys/auxv.h>
#include <system_error>

namespace gk::app {

namespace {

constexpr const char* kSearchPath = "GK_LIBRARY_PATH";
constexpr const char* kModulesFolder = "gksensors/modules";
constexpr char kAddition = '+';

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(separator), text.size());
    if (end > 0) {
      parts.emplace_back(text.substr(0, end));
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

bool isAddition(const std::string& name) {
  return name.starts_with(kAddition);
}

} // namespace

std::filesystem::path programFile() {
  std::error_code error;
  std::filesystem::path file = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) {
    // Without /proc: as whoever started it has called it.
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an address is what the kernel gives
    const auto* called = reinterpret_cast<const char*>(::getauxval(AT_EXECFN));
    file = std::filesystem::canonical(called != nullptr ? called : "", error);
  }
  return file;
}

std::filesystem::path rootFolder() {
  return programFile().parent_path().parent_path();
}

std::vector<std::string> libraryFolders() {
  std::vector<std::string> folders;
  if (const char* path = std::getenv(kSearchPath)) {
    folders = split(path, ':');
  }
  // As this program was built, and as it may have been moved.
  const std::filesystem::path root = rootFolder();
  for (const char* library : {GK_LIBDIR, "lib", "lib/" GK_ARCHITECTURE}) {
    const std::string folder = (root / library / kModulesFolder).string();
    if (std::ranges::find(folders, folder) == folders.end()) {
      folders.push_back(folder);
    }
  }
  return folders;
}

std::vector<std::string> addLibraries(const std::vector<std::string>& before,
                                      const std::vector<std::string>& asked) {
  if (!std::ranges::all_of(asked, isAddition)) {
    return asked;
  }
  std::vector<std::string> all = before;
  all.insert(all.end(), asked.begin(), asked.end());
  return all;
}

std::vector<std::string> libraryNames(const std::vector<std::string>& marked) {
  std::vector<std::string> names;
  names.reserve(marked.size());
  for (const std::string& name : marked) {
    names.push_back(isAddition(name) ? name.substr(1) : name);
  }
  return names;
}

std::vector<std::string> recordedLibraries(const std::string& text) {
  std::vector<std::string> names = split(text, ',');
  for (std::string& name : names) {
    constexpr std::string_view prefix = "lib";
    constexpr std::string_view suffix = ".so";
    if (name.starts_with(prefix) && name.ends_with(suffix)) {
      name = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    }
  }
  return names;
}

} // namespace gk::app
