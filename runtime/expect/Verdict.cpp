#include "runtime/expect/Verdict.h"

#include "formats/text/Printable.h"

namespace gk::runtime {

std::string verdictLine(const Verdict& verdict) {
  return formats::printable(verdict.file + ":" + std::to_string(verdict.line) + ": " +
                            verdict.text);
}

} // namespace gk::runtime
