#include "gateway/http/StaticFiles.h"

#include <algorithm>

namespace gk::gateway {

const StaticFile* findStaticFile(std::span<const StaticFile> files, std::string_view path) {
  const std::string_view wanted = path == "/" ? "/index.html" : path;
  const auto found = std::ranges::find(files, wanted, &StaticFile::path);
  return found != files.end() ? &*found : nullptr;
}

HttpResponse fileResponse(const StaticFile* file, const HttpRequest& request,
                          const std::string& path) {
  if (file == nullptr) {
    return errorResponse(404, "there is nothing at " + path);
  }
  HttpResponse response;
  response.contentType = file->contentType;
  response.headers.emplace_back("ETag", file->etag);
  response.headers.emplace_back("Cache-Control", "no-cache");
  if (request.ifNoneMatch == file->etag) {
    response.status = 304;
  } else {
    const bool isSmall = request.takesGzip && !file->gzip.empty();
    response.body = isSmall ? file->gzip : file->bytes;
    response.headers.emplace_back("Vary", "Accept-Encoding");
    if (isSmall) {
      response.headers.emplace_back("Content-Encoding", "gzip");
    }
  }
  return response;
}

} // namespace gk::gateway
