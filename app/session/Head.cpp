#include "app/session/Head.h"

#include "messages/text/Numbers.h"

#include <fmt/format.h>

namespace gk::app {

std::string headText(const Head& head) {
  std::string text = "robot: " + head.robot + "\n" + head.address + "\n";
  if (head.isServed && !head.hasPage) {
    text += "there is no page at this address: node and npm were missing when gk was built\n";
  }
  text += head.isServed
              ? fmt::format("what the modules report follows; {}ask from another shell, such as gk "
                            "watch robotPose\n",
                            head.hasPage ? "open the address in a browser, or " : "")
              : std::string("what the modules report follows\n");
  text += "Ctrl-C ends it";
  if (head.limit) {
    constexpr double perSecond = 1e6;
    text += fmt::format(", and {} s from now it ends by itself",
                        messages::doubleText(static_cast<double>(head.limit->count()) / perSecond));
  }
  return text + "\n";
}

} // namespace gk::app
