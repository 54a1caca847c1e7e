#pragma once

#include "messages/json/Json.h"
#include "support/Program.h"

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <sstream>
#include <string>
#include <vector>

namespace gk::test {

/// Runs the program with the simulated robot in virtual time and a scenario for so many seconds.
inline ProgramResult runRobot(const std::string& scenario, const std::string& seconds,
                              const std::vector<std::string>& more) {
  std::vector<std::string> arguments = {GK_PROGRAM, "run",     "--robot", "sim",   "--speed",
                                        "max",      "--until", seconds,   "--out", "-"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  arguments.push_back(scenario);
  return runProgram(std::move(arguments));
}

/// The lines of JSON that a run wrote.
inline std::vector<boost::json::object> jsonLines(const std::string& text) {
  std::vector<boost::json::object> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(messages::parseJson(line).as_object());
  }
  return lines;
}

inline std::string textOf(const boost::json::value& value) {
  return {value.as_string().data(), value.as_string().size()};
}

inline double numberOf(const boost::json::value& value) {
  return value.is_double() ? value.get_double() : static_cast<double>(value.as_int64());
}

} // namespace gk::test
