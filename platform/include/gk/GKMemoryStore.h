#pragma once

#include "gk/GKApi.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace GK {

/// The place of one memory key's value. Never moves and lives as long as its store.
///
/// The first four bytes are the value's bits: a float, an int, or a bool as 0 or 1; zero for other
/// types. They may be read and written through `address` at any time from any thread, by relaxed
/// atomic accesses of four bytes (`GKMemoryPlace`); what is written there is what `load` returns.
/// All operations may be called from any thread.
class GK_API GKMemoryCell {
public:
  GKMemoryCell() = default;
  ~GKMemoryCell();
  GKMemoryCell(const GKMemoryCell&) = delete;
  GKMemoryCell& operator=(const GKMemoryCell&) = delete;

  void* address() noexcept { return &fWord; }

  /// Takes a lock for strings and arrays only.
  GKValue load() const;
  void store(const GKValue& value);

  /// Without a lock and without waiting for other writers, unless a string or array goes.
  void storeFloat(float value);
  void storeInt(std::int32_t value);
  /// A value of a type without a string or an array, given by its bits.
  void storeBits(GKValue::Type type, std::uint32_t bits) { xStoreScalar(wordOf(type, bits)); }

  /// False until the first `store`: the cell was made, but the key is not there yet.
  bool exists() const noexcept { return (xWord() & kExists) != 0; }

private:
  /// Layout of the word: the bits in its lower half, above them the type and whether the key is
  /// there. Both halves change at once, so that the bits are never taken for another type.
  static constexpr int kTypeShift = 32;
  static constexpr std::uint64_t kTypeMask = std::uint64_t{7} << kTypeShift;
  static constexpr std::uint64_t kExists = std::uint64_t{8} << kTypeShift;

  static constexpr std::uint64_t wordOf(GKValue::Type type, std::uint32_t bits) noexcept {
    return kExists | static_cast<std::uint64_t>(type) << kTypeShift | bits;
  }
  static constexpr GKValue::Type typeOf(std::uint64_t word) noexcept {
    return static_cast<GKValue::Type>((word & kTypeMask) >> kTypeShift);
  }
  static constexpr bool isLarge(std::uint64_t word) noexcept {
    return typeOf(word) == GKValue::Type::String || typeOf(word) == GKValue::Type::Array;
  }

  std::uint64_t xWord() const noexcept {
    return std::atomic_ref<std::uint64_t>(fWord).load(std::memory_order_acquire);
  }
  void xStoreScalar(std::uint64_t word);
  /// Stores `word` and the large value that belongs to it, none for a scalar.
  void xReplace(std::uint64_t word, std::unique_ptr<const GKValue> large);
  /// Nothing when the string or array has been replaced meanwhile.
  std::optional<GKValue> xLoadLarge() const;

  mutable std::uint64_t fWord = 0;
  /// Strings and arrays; guarded by one of a few locks chosen by the cell's address.
  std::unique_ptr<const GKValue> fLarge;
};

/// All memory keys of a platform: made for many keys, many readers and few new keys.
///
/// Keys are never removed. Looking a key up takes no lock. All operations may be called from any
/// thread.
class GK_API GKMemoryStore {
public:
  GKMemoryStore();
  ~GKMemoryStore();
  GKMemoryStore(const GKMemoryStore&) = delete;
  GKMemoryStore& operator=(const GKMemoryStore&) = delete;

  /// The cell of a key that exists, or null.
  GKMemoryCell* find(std::string_view key) const noexcept;

  /// The cell of a key, made when there is none. The key exists only after a `store`.
  GKMemoryCell& cell(std::string_view key);

  /// Present value of an existing key.
  std::optional<GKValue> get(std::string_view key) const;
  void set(std::string_view key, const GKValue& value) { cell(key).store(value); }

  /// Names of the existing keys, sorted.
  std::vector<std::string> keys() const;
  /// Number of the existing keys. Looks at each.
  std::size_t size() const noexcept;

private:
  struct Table;
  std::unique_ptr<Table> fTable;
};

} // namespace GK
