#pragma once

#include "gateway/http/Http.h"

#include <span>
#include <string_view>

namespace gk::gateway {

/// A file of the page, as it was when the program was built.
struct StaticFile {
  /// As in an address: "/index.html", "/assets/page.js".
  std::string_view path;
  std::string_view contentType;
  std::string_view bytes;
  /// Changes with the content; with its quotes.
  std::string_view etag;
  /// The same, compressed; empty where that saves nothing.
  std::string_view gzip;
};

/// All files of the page, sorted by path; empty in a program that was built without it. Never
/// changes; from any thread.
std::span<const StaticFile> staticFiles();

/// The file of this path, or null. "/" is "/index.html".
const StaticFile* findStaticFile(std::span<const StaticFile> files, std::string_view path);

/// Answers a request for a file, of which the client may have this version already. Null for one
/// that is not there.
HttpResponse fileResponse(const StaticFile* file, const HttpRequest& request,
                          const std::string& path);

} // namespace gk::gateway
