#pragma once

#include <span>
#include <string_view>

namespace gk::app {

/// A file of the project that `gk new module` writes, with words in it that stand for others.
struct TemplateFile {
  /// Below the project's folder.
  std::string_view name;
  std::string_view text;
};

std::span<const TemplateFile> moduleTemplate();

} // namespace gk::app
