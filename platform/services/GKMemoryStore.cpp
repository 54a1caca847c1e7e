#include "gk/GKMemoryStore.h"

#include "platform/values/GKNameHash.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>
#include <thread>
#include <tuple>
#include <utility>

namespace GK {

namespace {

/// Strings and arrays are rare among memory values: a few locks serve them all.
std::mutex& lockOf(const void* cell) {
  constexpr std::size_t kLocks = 64;
  static std::array<std::mutex, kLocks> locks;
  return locks[std::hash<const void*>()(cell) / sizeof(GKMemoryCell) % kLocks];
}

} // namespace

GKMemoryCell::~GKMemoryCell() = default;

GKValue GKMemoryCell::load() const {
  while (true) {
    const std::uint32_t before = fState.load(std::memory_order_acquire);
    const std::uint32_t bits =
        std::atomic_ref<std::uint32_t>(fBits).load(std::memory_order_acquire);
    const std::uint32_t after = fState.load(std::memory_order_relaxed);
    // A write of the same type may go on: the bits before and after it are both good.
    if (((before ^ after) & ~kWriting) != 0 || (before & kChanging) != 0) {
      continue;
    }
    switch (static_cast<GKValue::Type>(before & kTypeMask)) {
    case GKValue::Type::Bool:
      return bits != 0;
    case GKValue::Type::Int:
      return static_cast<std::int32_t>(bits);
    case GKValue::Type::Float:
      return std::bit_cast<float>(bits);
    case GKValue::Type::Invalid:
      return GKValue();
    default:
      if (std::optional<GKValue> large = xLoadLarge()) {
        return *std::move(large);
      }
    }
  }
}

void GKMemoryCell::store(const GKValue& value) {
  switch (value.type()) {
  case GKValue::Type::Bool:
    xStoreBits(GKValue::Type::Bool, value.toBool() ? 1 : 0);
    break;
  case GKValue::Type::Int:
    storeInt(value.toInt());
    break;
  case GKValue::Type::Float:
    storeFloat(value.toFloat());
    break;
  case GKValue::Type::Invalid:
    xReplace(xBeginWrite(), GKValue::Type::Invalid, 0, nullptr);
    break;
  default: {
    auto large = std::make_unique<const GKValue>(value);
    xReplace(xBeginWrite(), value.type(), 0, std::move(large));
  }
  }
}

void GKMemoryCell::storeFloat(float value) {
  xStoreBits(GKValue::Type::Float, std::bit_cast<std::uint32_t>(value));
}

void GKMemoryCell::storeInt(std::int32_t value) {
  xStoreBits(GKValue::Type::Int, static_cast<std::uint32_t>(value));
}

void GKMemoryCell::xStoreBits(GKValue::Type type, std::uint32_t bits) {
  const std::uint32_t state = xBeginWrite();
  if ((state & (kTypeMask | kExists)) == (static_cast<std::uint32_t>(type) | kExists)) {
    // Releases the state that was found: who sees the new bits sees that their type has come.
    std::atomic_ref<std::uint32_t>(fBits).store(bits, std::memory_order_release);
    fState.store(state, std::memory_order_release);
  } else {
    xReplace(state, type, bits, nullptr);
  }
}

std::uint32_t GKMemoryCell::xBeginWrite() noexcept {
  while (true) {
    std::uint32_t state = fState.load(std::memory_order_relaxed) & ~kWriting;
    // Without this, bits of one type could land behind a type that another writer has just set.
    if (fState.compare_exchange_weak(state, state | kWriting, std::memory_order_acquire,
                                     std::memory_order_relaxed)) {
      return state;
    }
    std::this_thread::yield();
  }
}

void GKMemoryCell::xReplace(std::uint32_t state, GKValue::Type type, std::uint32_t bits,
                            std::unique_ptr<const GKValue> large) {
  // The former large value is freed outside of the lock.
  const std::lock_guard lock(lockOf(this));
  const std::uint32_t version = (state & ~(kVersion - 1)) + kVersion;
  fState.store(version | kWriting | kChanging | (state & kExists), std::memory_order_relaxed);
  // Releases the mark above: who sees the new bits sees that the type is changing, or has changed.
  std::atomic_ref<std::uint32_t>(fBits).store(bits, std::memory_order_release);
  fLarge.swap(large);
  fState.store(version | kExists | static_cast<std::uint32_t>(type), std::memory_order_release);
}

std::optional<GKValue> GKMemoryCell::xLoadLarge() const {
  const std::lock_guard lock(lockOf(this));
  return fLarge != nullptr ? std::optional(*fLarge) : std::nullopt;
}

struct GKMemoryStore::Table {
  Table() { cells.max_load_factor(kNamesPerBucket); }

  NameMap<GKMemoryCell> cells;
};

GKMemoryStore::GKMemoryStore() : fTable(std::make_unique<Table>()) {}
GKMemoryStore::~GKMemoryStore() = default;

GKMemoryCell* GKMemoryStore::find(std::string_view key) const noexcept {
  const auto found = fTable->cells.find(key);
  return found != fTable->cells.end() && found->second.exists() ? &found->second : nullptr;
}

GKMemoryCell& GKMemoryStore::cell(std::string_view key) {
  const auto found = fTable->cells.find(key);
  if (found != fTable->cells.end()) {
    return found->second;
  }
  return fTable->cells
      .emplace(std::piecewise_construct, std::forward_as_tuple(key), std::forward_as_tuple())
      .first->second;
}

std::optional<GKValue> GKMemoryStore::get(std::string_view key) const {
  const GKMemoryCell* cell = find(key);
  return cell != nullptr ? std::optional(cell->load()) : std::nullopt;
}

std::vector<std::string> GKMemoryStore::keys() const {
  std::vector<std::string> names;
  names.reserve(fTable->cells.size());
  for (const auto& [key, cell] : fTable->cells) {
    if (cell.exists()) {
      names.push_back(key);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::size_t GKMemoryStore::size() const noexcept {
  return fTable->cells.size();
}

} // namespace GK
