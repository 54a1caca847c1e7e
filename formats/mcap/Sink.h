#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace gk::formats::mcap {

/// A file cannot be written; `what()` names it and the reason, on one line.
class WriteError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Where a file's bytes go. For one thread.
class Sink {
public:
  virtual ~Sink() = default;

  /// Raises `WriteError`.
  virtual void write(std::string_view bytes) = 0;
  /// What was written so far survives the loss of power. Raises `WriteError`.
  virtual void sync() = 0;
};

/// A file on the disk; one that was there before is replaced.
class FileSink final : public Sink {
public:
  /// Raises `WriteError`.
  explicit FileSink(std::string path);
  ~FileSink() override;
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;

  void write(std::string_view bytes) override;
  void sync() override;

private:
  std::string fPath;
  int fFile;
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
