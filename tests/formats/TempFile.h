#pragma once

#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <unistd.h>

/// A file that is there as long as the object.
class TempFile {
public:
  TempFile(std::string_view ending, std::string_view content)
      : TempFile(ending, [content](const std::string& path) {
          std::ofstream(path, std::ios::binary) << content;
        }) {}

  static TempFile gzipped(std::string_view ending, std::string_view content) {
    return TempFile(ending, [content](const std::string& path) {
      gzFile out = gzopen(path.c_str(), "wb");
      gzwrite(out, content.data(), static_cast<unsigned>(content.size()));
      gzclose(out);
    });
  }

  ~TempFile() { std::filesystem::remove(fPath); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  const std::string& path() const { return fPath; }

  std::string bytes() const {
    std::ifstream in(fPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

private:
  TempFile(std::string_view ending, const std::function<void(const std::string&)>& write) {
    static int count = 0;
    fPath =
        std::filesystem::temp_directory_path() / ("gkformats-" + std::to_string(getpid()) + "-" +
                                                  std::to_string(++count) + std::string(ending));
    write(fPath);
  }

  std::string fPath;
};
