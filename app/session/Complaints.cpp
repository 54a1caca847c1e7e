#include "app/session/Complaints.h"

#include "app/options/Command.h"

#include <fmt/format.h>

namespace gk::app {

void complain(const std::string& text) {
  fmt::print(stderr, "gk: {}\n", text);
}

int complainOf(const formats::OutputError& error) {
  complain(error.what());
  return error.kind() == formats::OutputError::Kind::Name ? kBadInput : kFailure;
}

} // namespace gk::app
