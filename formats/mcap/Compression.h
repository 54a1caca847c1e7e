#pragma once

#include "messages/text/FormatError.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace gk::formats::mcap {

enum class Compression : std::uint8_t { None, Zstd, Lz4 };

/// "", "zstd" or "lz4", as files name it.
std::string_view compressionName(Compression compression);
std::optional<Compression> findCompression(std::string_view name);

/// Compresses chunks, one at a time: each becomes a frame of its own. For one thread.
class Compressor {
public:
  /// Levels of zstd: the fastest one that still shrinks tables of slowly moving numbers well, and
  /// one for what comes slowly and is to be kept.
  static constexpr int kQuick = 3;
  static constexpr int kThorough = 9;

  explicit Compressor(Compression compression, int level = kQuick);
  ~Compressor();
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;

  Compression compression() const noexcept { return fCompression; }

  /// Replaces `out` by `bytes` compressed. Raises `FormatError` when the library fails.
  void compress(std::string_view bytes, std::string& out);

private:
  struct Context;

  const Compression fCompression;
  const int fLevel;
  std::unique_ptr<Context> fContext;
};

/// Decompresses chunks, one at a time. For one thread.
class Decompressor {
public:
  Decompressor();
  ~Decompressor();
  Decompressor(const Decompressor&) = delete;
  Decompressor& operator=(const Decompressor&) = delete;

  /// Replaces `out` by `bytes` decompressed. Raises `FormatError` unless they are a whole frame of
  /// exactly `size` bytes.
  void decompress(Compression compression, std::string_view bytes, std::size_t size,
                  std::string& out);

private:
  struct Context;

  std::unique_ptr<Context> fContext;
};

} // namespace gk::formats::mcap
