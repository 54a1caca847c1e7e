#pragma once

#include <stdexcept>

namespace gk::messages {

/// A text is not what it should be. Whoever knows its file and line makes an `InputError` of it.
class FormatError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace gk::messages
