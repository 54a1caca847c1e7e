#include "app/session/DescriptorOutlet.h"

#include "formats/files/OutputError.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <unistd.h>

namespace gk::app {

void DescriptorOutlet::write(std::string_view line) {
  constexpr std::size_t enough = std::size_t{64} * 1024;
  fBuffer += line;
  if (fBuffer.size() >= enough) {
    flush();
  }
}

void DescriptorOutlet::flush() {
  std::string_view rest = fBuffer;
  while (!rest.empty() && fError == 0) {
    const ssize_t size = ::write(fDescriptor, rest.data(), rest.size());
    fError = size < 0 ? errno : 0;
    rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  }
  fBuffer.clear();
}

void DescriptorOutlet::commit() {
  flush();
  if (fError != 0) {
    throw formats::OutputError(formats::OutputError::Kind::Write,
                               "cannot keep the output: " +
                                   std::generic_category().message(fError));
  }
}

} // namespace gk::app
