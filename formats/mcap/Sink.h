#pragma once

#include "formats/files/OutputFile.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace gk::formats::mcap {

/// Where a file's bytes go. For one thread.
class Sink {
public:
  virtual ~Sink() = default;

  /// Raises `OutputError`.
  virtual void write(std::string_view bytes) = 0;
  /// What was written so far survives the loss of power. Raises `OutputError`.
  virtual void sync() = 0;
};

/// A file on the disk.
class FileSink final : public Sink {
public:
  /// Raises `OutputError`.
  explicit FileSink(std::string path, const OutputFileOptions& options = {})
      : fFile(std::move(path), options) {}

  void write(std::string_view bytes) override { fFile.write(bytes); }
  void sync() override { fFile.sync(); }

  /// Without `appear` nothing is left of it.
  OutputFile& file() noexcept { return fFile; }

private:
  OutputFile fFile;
};

/// Memory.
class MemorySink final : public Sink {
public:
  void write(std::string_view bytes) override { fBytes += bytes; }
  void sync() override {}

  const std::string& bytes() const noexcept { return fBytes; }

private:
  std::string fBytes;
};

} // namespace gk::formats::mcap
