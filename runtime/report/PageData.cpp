#include "runtime/report/PageData.h"

namespace gk::runtime {

std::string pageData(std::string_view json) {
  std::string out;
  out.reserve(json.size());
  for (const char c : json) {
    if (c == '<') {
      out += "\\u003c";
    } else {
      out += c;
    }
  }
  return out;
}

} // namespace gk::runtime
