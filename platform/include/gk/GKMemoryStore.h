#pragma once

#include "gk/GKApi.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace GK {

/// The place of one memory key's value. Never moves and lives as long as its store.
///
/// The first four bytes are the value's bits: a float, an int, or a bool as 0 or 1; zero for other
/// types. They may be read and written through `address` at any time from any thread, by relaxed
/// atomic accesses of four bytes; what is written there is what `load` returns. All operations may
/// be called from any thread.
class GK_API GKMemoryCell {
public:
  GKMemoryCell() = default;
  ~GKMemoryCell();
  GKMemoryCell(const GKMemoryCell&) = delete;
  GKMemoryCell& operator=(const GKMemoryCell&) = delete;

  void* address() noexcept { return &fBits; }

  GKValue load() const;
  void store(const GKValue& value);

  /// Where the type stays the same these take no lock and keep no reader waiting.
  void storeFloat(float value);
  void storeInt(std::int32_t value);

  /// False until the first `store`: the cell was made, but the key is not there yet.
  bool exists() const noexcept { return (fState.load(std::memory_order_acquire) & kExists) != 0; }

private:
  /// Layout of the state: bits 0-2 type, bit 3 exists, bit 4 one writer is at work, bit 5 the
  /// writer changes the type, bits 6 and up a version that each change of type moves on.
  static constexpr std::uint32_t kTypeMask = 7;
  static constexpr std::uint32_t kExists = 8;
  static constexpr std::uint32_t kWriting = 16;
  static constexpr std::uint32_t kChanging = 32;
  static constexpr std::uint32_t kVersion = 64;

  void xStoreBits(GKValue::Type type, std::uint32_t bits);
  /// Keeps other writers out until the state is stored again. Returns the state before.
  std::uint32_t xBeginWrite() noexcept;
  /// Ends the write begun at `state` with a value of another type.
  void xReplace(std::uint32_t state, GKValue::Type type, std::uint32_t bits,
                std::unique_ptr<const GKValue> large);
  /// Nothing when the string or array has been replaced meanwhile.
  std::optional<GKValue> xLoadLarge() const;

  mutable std::uint32_t fBits = 0;
  std::atomic<std::uint32_t> fState{0};
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
  std::size_t size() const noexcept;

private:
  struct Table;
  std::unique_ptr<Table> fTable;
};

} // namespace GK
