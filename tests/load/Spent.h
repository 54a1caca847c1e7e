#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace gk::load {

inline std::string firstLine(const std::string& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

/// One of the numbers of a line of /proc, 0 where there are fewer.
inline double ticksAt(std::istringstream numbers, int place) {
  std::string number;
  for (int i = 0; i < place && numbers >> number; ++i) {
  }
  return std::strtod(number.c_str(), nullptr) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

/// What the machine has spent until now, in seconds of a processor.
struct Spent {
  /// Of the host alone: in its own code, and in the kernel for it.
  double user = 0;
  double system = 0;
  /// What the hypervisor gave to others.
  double stolen = 0;
};

/// `pid`: of the host; empty for one that is not here.
inline Spent spentNow(const std::string& pid) {
  constexpr int userPlace = 12;
  constexpr int stolenPlace = 9;
  Spent spent;
  spent.stolen = ticksAt(std::istringstream(firstLine("/proc/stat")), stolenPlace);
  if (!pid.empty()) {
    // The name, in parentheses, may have spaces in it.
    const std::string line = firstLine("/proc/" + pid + "/stat");
    const std::string numbers = line.substr(line.rfind(')') + 1);
    spent.user = ticksAt(std::istringstream(numbers), userPlace);
    spent.system = ticksAt(std::istringstream(numbers), userPlace + 1);
  }
  return spent;
}

} // namespace gk::load
