#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace gk::formats::mcap {

/// Bytes that are read from any place. For one thread.
class Source {
public:
  virtual ~Source() = default;

  virtual std::uint64_t size() const noexcept = 0;

  /// Replaces `out` by `count` bytes from `offset` on, by fewer at the end. Raises `InputError`
  /// when they cannot be read.
  virtual void read(std::uint64_t offset, std::size_t count, std::string& out) = 0;
};

/// A file, of the length that it had when it was opened.
class FileSource final : public Source {
public:
  /// Raises `InputError` for what is not there, cannot be read or is no regular file.
  explicit FileSource(std::string path);
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  std::uint64_t size() const noexcept override { return fSize; }
  void read(std::uint64_t offset, std::size_t count, std::string& out) override;

private:
  void xRead(std::uint64_t offset, std::size_t count, std::string& out);

  std::string fPath;
  int fFile;
  std::uint64_t fSize = 0;
  /// What lies around the last small piece that was read: heads of records are small and many.
  std::string fWindow;
  std::uint64_t fWindowAt = 0;
};

/// Memory, which must outlive the source.
class MemorySource final : public Source {
public:
  explicit MemorySource(std::string_view bytes) : fBytes(bytes) {}

  std::uint64_t size() const noexcept override { return fBytes.size(); }
  void read(std::uint64_t offset, std::size_t count, std::string& out) override {
    out = offset < fBytes.size() ? fBytes.substr(offset, count) : std::string_view();
  }

private:
  std::string_view fBytes;
};

} // namespace gk::formats::mcap
