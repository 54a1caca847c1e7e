#pragma once

#include <tbb/concurrent_unordered_map.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

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

/// A map of names that is read without a lock and whose entries never move. With the allocator that
/// everything else has: ThreadSanitizer knows it.
template <class T> using NameMap =
    tbb::concurrent_unordered_map<std::string, T, NameHash, std::equal_to<std::string>,
                                  std::allocator<std::pair<const std::string, T>>>;

} // namespace GK
