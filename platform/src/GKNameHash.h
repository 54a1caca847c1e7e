#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

// Only the function itself, inlined: no library to link.
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace GK {

/// Hash of keys and names in maps that are looked up without building strings. A name is hashed on
/// every access by name, so this is most of what such an access costs.
struct NameHash {
  using transparent_key_equal = std::equal_to<>;
  std::size_t operator()(std::string_view name) const noexcept {
    return XXH3_64bits(name.data(), name.size());
  }
};

/// What maps of names are set to: more names in a bucket cost a cache miss each.
constexpr float kNamesPerBucket = 1.0F;

} // namespace GK
