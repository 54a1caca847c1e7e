#include "formats/mcap/Compression.h"

#include <array>
#include <lz4frame.h>
#include <new>
#include <zstd.h>

namespace gk::formats::mcap {

namespace {

/// In the order of `Compression`.
constexpr std::array<std::string_view, 3> kNames{"", "zstd", "lz4"};

std::size_t checkedZstd(std::size_t result) {
  if (ZSTD_isError(result) != 0) {
    throw messages::FormatError(std::string("zstd: ") + ZSTD_getErrorName(result));
  }
  return result;
}

std::size_t checkedLz4(std::size_t result) {
  if (LZ4F_isError(result) != 0) {
    throw messages::FormatError(std::string("lz4: ") + LZ4F_getErrorName(result));
  }
  return result;
}

template <class T> T* checked(T* context) {
  if (context == nullptr) {
    throw std::bad_alloc();
  }
  return context;
}

} // namespace

std::string_view compressionName(Compression compression) {
  return kNames[static_cast<std::size_t>(compression)];
}

std::optional<Compression> findCompression(std::string_view name) {
  for (const Compression one : {Compression::None, Compression::Zstd, Compression::Lz4}) {
    if (compressionName(one) == name) {
      return one;
    }
  }
  return std::nullopt;
}

struct Compressor::Context {
  struct Free {
    void operator()(ZSTD_CCtx* context) const noexcept { ZSTD_freeCCtx(context); }
  };
  std::unique_ptr<ZSTD_CCtx, Free> zstd{checked(ZSTD_createCCtx())};
};

Compressor::Compressor(Compression compression, int level)
    : fCompression(compression), fLevel(level), fContext(std::make_unique<Context>()) {}
Compressor::~Compressor() = default;

void Compressor::compress(std::string_view bytes, std::string& out) {
  switch (fCompression) {
  case Compression::None:
    out.assign(bytes);
    return;
  case Compression::Zstd:
    out.resize(ZSTD_compressBound(bytes.size()));
    out.resize(checkedZstd(ZSTD_compressCCtx(fContext->zstd.get(), out.data(), out.size(),
                                             bytes.data(), bytes.size(), fLevel)));
    return;
  case Compression::Lz4:
    out.resize(LZ4F_compressFrameBound(bytes.size(), nullptr));
    out.resize(checkedLz4(
        LZ4F_compressFrame(out.data(), out.size(), bytes.data(), bytes.size(), nullptr)));
    return;
  }
}

struct Decompressor::Context {
  struct Free {
    void operator()(ZSTD_DCtx* context) const noexcept { ZSTD_freeDCtx(context); }
    void operator()(LZ4F_dctx* context) const noexcept { LZ4F_freeDecompressionContext(context); }
  };

  Context() {
    LZ4F_dctx* context = nullptr;
    checkedLz4(LZ4F_createDecompressionContext(&context, LZ4F_VERSION));
    lz4.reset(context);
  }

  std::unique_ptr<ZSTD_DCtx, Free> zstd{checked(ZSTD_createDCtx())};
  std::unique_ptr<LZ4F_dctx, Free> lz4;
};

Decompressor::Decompressor() : fContext(std::make_unique<Context>()) {}
Decompressor::~Decompressor() = default;

void Decompressor::decompress(Compression compression, std::string_view bytes, std::size_t size,
                              std::string& out) {
  std::size_t decompressed = 0;
  switch (compression) {
  case Compression::None:
    out.assign(bytes);
    decompressed = bytes.size();
    break;
  case Compression::Zstd:
    out.resize(size);
    decompressed = checkedZstd(ZSTD_decompressDCtx(fContext->zstd.get(), out.data(), out.size(),
                                                   bytes.data(), bytes.size()));
    break;
  case Compression::Lz4: {
    out.resize(size);
    LZ4F_resetDecompressionContext(fContext->lz4.get());
    std::size_t taken = 0;
    std::size_t missing = 1;
    while (missing != 0 && taken < bytes.size()) {
      std::size_t room = size - decompressed;
      std::size_t offered = bytes.size() - taken;
      missing = checkedLz4(LZ4F_decompress(fContext->lz4.get(), out.data() + decompressed, &room,
                                           bytes.data() + taken, &offered, nullptr));
      if (room == 0 && offered == 0) {
        break;
      }
      decompressed += room;
      taken += offered;
    }
    if (missing != 0 || taken != bytes.size()) {
      throw messages::FormatError("lz4: the frame is not whole");
    }
    break;
  }
  }
  if (decompressed != size) {
    throw messages::FormatError("it holds " + std::to_string(decompressed) + " bytes instead of " +
                                std::to_string(size));
  }
}

} // namespace gk::formats::mcap
