#include "app/terminal/LiveStyle.h"

#include "app/terminal/Screen.h"
#include "app/terminal/Table.h"

namespace gk::app {

formats::LiveRows::Style liveStyle() {
  formats::LiveRows::Style style;
  style.isColoured = hasColours();
  if (isTerminal()) {
    style.columns = [] { return screenSize().columns; };
  }
  return style;
}

} // namespace gk::app
