#pragma once

#include "gk/GKModule.h"
#include "gk/GKValue.h"
#include "gk/GKVersion.h"

#include <cstdint>

namespace GK {

/// What a module library tells about itself in an ELF note, which hosts read before they load the
/// file: none of the library's code has run then.
struct GKModuleNote {
  static constexpr const char* kSection = ".note.gk.module";
  static constexpr char kOwner[4] = "GK";
  static constexpr std::uint32_t kType = 1;

  /// Layout of what follows.
  std::uint32_t format = 1;
  /// Sizes of what libraries and platform share: catch a forgotten change of `abi`.
  std::uint32_t sizeOfModule = sizeof(GKModule);
  std::uint32_t sizeOfValue = sizeof(GKValue);
  /// `GK_PLATFORM_ABI` and `GK_PLATFORM_VERSION` of the headers that the library was built with.
  char abi[16] = GK_PLATFORM_ABI;
  char version[16] = GK_PLATFORM_VERSION;
  /// The C++ library, whose strings and vectors cross the border.
#if defined(_LIBCPP_VERSION)
  char cxxLibrary[32] = "libc++";
#elif _GLIBCXX_USE_CXX11_ABI
  char cxxLibrary[32] = "libstdc++";
#else
  char cxxLibrary[32] = "libstdc++ with old strings";
#endif
};

/// The note as it stands in the file.
struct GKModuleNoteEntry {
  std::uint32_t ownerSize = sizeof owner;
  std::uint32_t size = sizeof note;
  std::uint32_t type = GKModuleNote::kType;
  char owner[4] = "GK";
  GKModuleNote note;
};

} // namespace GK
