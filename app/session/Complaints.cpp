#include "app/session/Complaints.h"

#include "app/options/Command.h"

#include <fmt/format.h>

namespace gk::app {

void complain(const std::string& text, Severity severity) {
  fmt::print(stderr, "{}gk: {}\n", journalLevel(severity), text);
}

void complainAsItStands(const std::string& line) {
  fmt::print(stderr, "{}{}\n", journalLevel(Severity::Error), line);
}

int complainOf(const formats::OutputError& error) {
  complain(error.what());
  return error.kind() == formats::OutputError::Kind::Name ? kBadInput : kFailure;
}

} // namespace gk::app
