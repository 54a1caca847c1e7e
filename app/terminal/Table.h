#pragma once

#include <string>
#include <vector>

namespace gk::app {

/// Whether standard output is a terminal that can be redrawn, and whether it is to have colours
/// (https://no-color.org).
bool isTerminal();
bool hasColours();

/// Rows of text in columns as wide as their widest cell; the first row is the heading. Lines
/// end with their last text; cells are made printable. On a terminal the heading is bold.
std::string tableText(const std::vector<std::vector<std::string>>& rows);

} // namespace gk::app
