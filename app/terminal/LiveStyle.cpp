#include "app/terminal/LiveStyle.h"

#include "app/terminal/Screen.h"
#include "app/terminal/Table.h"

#include <fnmatch.h>

namespace gk::app {

formats::LiveRows::Style liveStyle() {
  formats::LiveRows::Style style;
  style.isColoured = hasColours();
  if (isTerminal()) {
    style.columns = [] { return screenSize().columns; };
  }
  return style;
}

bool isNameMeant(const std::string& pattern, const std::string& name) {
  const bool isGlob = pattern.find_first_of("*?[") != std::string::npos;
  return isGlob ? fnmatch(pattern.c_str(), name.c_str(), 0) == 0
                : name.find(pattern) != std::string::npos;
}

} // namespace gk::app
