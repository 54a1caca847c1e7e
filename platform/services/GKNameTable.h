#pragma once

#include "gk/GKPriorityMutex.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

// Only the function itself, inlined: no library to link.
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace GK {

/// An address with a number of 16 bits beside it in one word: what a process is given to address
/// has 48 bits, unless it asks for more.
template <class T> class GKTagged {
public:
  GKTagged() noexcept = default;
  GKTagged(T* pointer, std::uint64_t tag) noexcept
      : fWord(tag << kAddressBits | std::bit_cast<std::uint64_t>(pointer)) {}

  T* pointer() const noexcept {
    return std::bit_cast<T*>(fWord & ((std::uint64_t{1} << kAddressBits) - 1));
  }
  std::uint64_t tag() const noexcept { return fWord >> kAddressBits; }

private:
  static constexpr int kAddressBits = 48;
  static_assert(sizeof(T*) == sizeof(std::uint64_t));

  std::uint64_t fWord = 0;
};

/// A map of names: looked up without a lock, and entries neither move nor go as long as the table
/// is there. Any thread.
///
/// Open addressing, since a look-up costs what it misses in the processor's caches: eight slots
/// share a cache line, a slot tells by a part of the hash whether it is worth to follow, and an
/// entry has its name beside its value.
template <class T> class GKNameTable {
public:
  GKNameTable() = default;
  ~GKNameTable();
  GKNameTable(const GKNameTable&) = delete;
  GKNameTable& operator=(const GKNameTable&) = delete;

  /// Null if there is none.
  T* find(std::string_view name) const noexcept {
    Entry* entry = xFind(name, xHash(name));
    return entry != nullptr ? &entry->value : nullptr;
  }

  /// Made of `arguments` if there is none.
  template <class... A> T& get(std::string_view name, A&&... arguments);

  /// Shows all that are there: `show(name, value)`, in no order.
  template <class Show> void forEach(const Show& show) const;

private:
  struct Entry {
    template <class... A> Entry(std::uint32_t size, std::uint32_t low, A&&... arguments)
        : value(std::forward<A>(arguments)...), length(size), hash(low) {}

    /// Lies behind the entry.
    std::string_view name() const noexcept {
      return {reinterpret_cast<const char*>(this + 1), length};
    }

    T value;
    const std::uint32_t length;
    /// Lower half of the name's hash.
    const std::uint32_t hash;
  };

  /// The tag is a part of the name's hash.
  using Slot = std::atomic<GKTagged<Entry>>;
  /// The tag is the number of slots as a power of two.
  using Slots = GKTagged<Slot>;

  static std::uint64_t xHash(std::string_view name) noexcept {
    return XXH3_64bits(name.data(), name.size());
  }

  // Which bits of a hash are for what: the lowest ones for the slot.
  static constexpr int kShardBits = 6;
  static constexpr std::size_t shardOf(std::uint64_t hash) { return hash >> (64 - kShardBits); }
  static constexpr std::uint64_t tagOf(std::uint64_t hash) { return hash >> 32 & 0xFFFF; }

  struct Shard {
    std::size_t count = 0;
    /// The last one is in use. Others may still be read.
    std::vector<std::unique_ptr<Slot[]>> tables;
  };

  static std::size_t maskOf(Slots slots) { return (std::size_t{1} << slots.tag()) - 1; }

  Entry* xFind(std::string_view name, std::uint64_t hash) const noexcept;
  /// Room for one more, with the lock.
  Slots xMakeRoom(std::size_t shard);
  static void xPlace(Slots slots, std::uint32_t hash, GKTagged<Entry> entry);

  /// Each grows by itself: nobody who adds a name waits until all names are in their new places.
  std::array<std::atomic<Slots>, std::size_t{1} << kShardBits> fSlots{};

  /// Guards adding.
  GKPriorityMutex fMutex;
  std::array<Shard, std::size_t{1} << kShardBits> fShards;
};

template <class T> GKNameTable<T>::~GKNameTable() {
  for (const std::atomic<Slots>& shard : fSlots) {
    const Slots slots = shard.load(std::memory_order_relaxed);
    for (std::size_t i = 0; slots.pointer() != nullptr && i <= maskOf(slots); ++i) {
      if (Entry* entry = slots.pointer()[i].load(std::memory_order_relaxed).pointer()) {
        entry->~Entry();
        ::operator delete(entry, std::align_val_t(alignof(Entry)));
      }
    }
  }
}

template <class T> typename GKNameTable<T>::Entry*
GKNameTable<T>::xFind(std::string_view name, std::uint64_t hash) const noexcept {
  const Slots slots = fSlots[shardOf(hash)].load(std::memory_order_acquire);
  if (slots.pointer() == nullptr) {
    return nullptr;
  }
  const std::size_t mask = maskOf(slots);
  for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
    const GKTagged<Entry> found = slots.pointer()[i].load(std::memory_order_acquire);
    if (found.pointer() == nullptr) {
      return nullptr;
    }
    if (found.tag() == tagOf(hash) && found.pointer()->name() == name) {
      return found.pointer();
    }
  }
}

template <class T> template <class... A>
T& GKNameTable<T>::get(std::string_view name, A&&... arguments) {
  const std::uint64_t hash = xHash(name);
  if (Entry* entry = xFind(name, hash)) {
    return entry->value;
  }
  const std::lock_guard lock(fMutex);
  if (Entry* entry = xFind(name, hash)) {
    return entry->value;
  }
  const Slots slots = xMakeRoom(shardOf(hash));
  void* place = ::operator new(sizeof(Entry) + name.size(), std::align_val_t(alignof(Entry)));
  auto* entry = new (place) Entry(static_cast<std::uint32_t>(name.size()),
                                  static_cast<std::uint32_t>(hash), std::forward<A>(arguments)...);
  std::memcpy(static_cast<void*>(entry + 1), name.data(), name.size());
  xPlace(slots, entry->hash, {entry, tagOf(hash)});
  ++fShards[shardOf(hash)].count;
  return entry->value;
}

template <class T> typename GKNameTable<T>::Slots GKNameTable<T>::xMakeRoom(std::size_t shard) {
  constexpr std::uint64_t kFirstBits = 3;
  Shard& known = fShards[shard];
  const Slots present = fSlots[shard].load(std::memory_order_relaxed);
  const bool isFirst = present.pointer() == nullptr;
  // A quarter stays empty, so that whoever looks comes to an end soon.
  if (!isFirst && known.count < (maskOf(present) + 1) / 4 * 3) {
    return present;
  }
  const std::uint64_t bits = isFirst ? kFirstBits : present.tag() + 1;
  known.tables.push_back(std::make_unique<Slot[]>(std::size_t{1} << bits));
  const Slots larger(known.tables.back().get(), bits);
  for (std::size_t i = 0; !isFirst && i <= maskOf(present); ++i) {
    const GKTagged<Entry> entry = present.pointer()[i].load(std::memory_order_relaxed);
    if (entry.pointer() != nullptr) {
      xPlace(larger, entry.pointer()->hash, entry);
    }
  }
  fSlots[shard].store(larger, std::memory_order_release);
  return larger;
}

template <class T>
void GKNameTable<T>::xPlace(Slots slots, std::uint32_t hash, GKTagged<Entry> entry) {
  std::size_t i = hash & maskOf(slots);
  while (slots.pointer()[i].load(std::memory_order_relaxed).pointer() != nullptr) {
    i = (i + 1) & maskOf(slots);
  }
  slots.pointer()[i].store(entry, std::memory_order_release);
}

template <class T> template <class Show> void GKNameTable<T>::forEach(const Show& show) const {
  for (const std::atomic<Slots>& shard : fSlots) {
    const Slots slots = shard.load(std::memory_order_acquire);
    for (std::size_t i = 0; slots.pointer() != nullptr && i <= maskOf(slots); ++i) {
      if (Entry* entry = slots.pointer()[i].load(std::memory_order_acquire).pointer()) {
        show(entry->name(), entry->value);
      }
    }
  }
}

} // namespace GK
