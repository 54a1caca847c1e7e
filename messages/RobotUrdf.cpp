// Writes the description of the robot for programs that read it from a file.
//
// Usage: gk_urdf > robot.urdf

#include "messages/ros/Urdf.h"

#include <iostream>

int main() {
  std::cout << gk::messages::ros::robotUrdf() << std::flush;
  return std::cout.good() ? 0 : 1;
}
