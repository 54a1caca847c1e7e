#include "gateway/http/StaticFiles.h"

#include <algorithm>

namespace gk::gateway {

const StaticFile* findStaticFile(std::string_view path) {
  const std::string_view wanted = path == "/" ? "/index.html" : path;
  const auto files = staticFiles();
  const auto found = std::ranges::find(files, wanted, &StaticFile::path);
  return found != files.end() ? &*found : nullptr;
}

} // namespace gk::gateway
