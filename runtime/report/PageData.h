#pragma once

#include <string>
#include <string_view>

namespace gk::runtime {

/// JSON as it may stand in a page: nothing in it ends the element around it.
std::string pageData(std::string_view json);

} // namespace gk::runtime
