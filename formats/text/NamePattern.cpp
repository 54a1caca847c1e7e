#include "formats/text/NamePattern.h"

#include <fnmatch.h>

namespace gk::formats {

bool isPattern(std::string_view word) {
  return word.find_first_of("*?[") != std::string_view::npos;
}

bool isMeant(const std::string& name, const std::string& word) {
  return isPattern(word) ? fnmatch(word.c_str(), name.c_str(), 0) == 0
                         : name.find(word) != std::string::npos;
}

} // namespace gk::formats
