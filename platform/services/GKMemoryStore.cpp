#include "gk/GKMemoryStore.h"

#include "gk/GKPriorityMutex.h"
#include "platform/services/GKNameTable.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>
#include <mutex>
#include <utility>

namespace GK {

// The bits at a cell's address are the lower half of its word, and both are accessed as a whole.
static_assert(std::endian::native == std::endian::little &&
              std::atomic_ref<std::uint64_t>::is_always_lock_free &&
              alignof(GKMemoryCell) >= std::atomic_ref<std::uint64_t>::required_alignment);

namespace {

/// Strings and arrays are rare among memory values: a few locks serve them all.
GKPriorityMutex& lockOf(const void* cell) {
  constexpr std::size_t kLocks = 64;
  static std::array<GKPriorityMutex, kLocks> locks;
  return locks[std::hash<const void*>()(cell) / sizeof(GKMemoryCell) % kLocks];
}

} // namespace

GKMemoryCell::~GKMemoryCell() = default;

GKValue GKMemoryCell::load() const {
  while (true) {
    const std::uint64_t word = xWord();
    const auto bits = static_cast<std::uint32_t>(word);
    switch (typeOf(word)) {
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
    xStoreScalar(wordOf(GKValue::Type::Bool, value.toBool() ? 1 : 0));
    break;
  case GKValue::Type::Int:
    storeInt(value.toInt());
    break;
  case GKValue::Type::Float:
    storeFloat(value.toFloat());
    break;
  case GKValue::Type::Invalid:
    xStoreScalar(wordOf(GKValue::Type::Invalid, 0));
    break;
  default:
    xReplace(wordOf(value.type(), 0), std::make_unique<const GKValue>(value));
  }
}

void GKMemoryCell::storeFloat(float value) {
  xStoreScalar(wordOf(GKValue::Type::Float, std::bit_cast<std::uint32_t>(value)));
}

void GKMemoryCell::storeInt(std::int32_t value) {
  xStoreScalar(wordOf(GKValue::Type::Int, static_cast<std::uint32_t>(value)));
}

void GKMemoryCell::xStoreScalar(std::uint64_t word) {
  const std::atomic_ref<std::uint64_t> place(fWord);
  if (isLarge(place.load(std::memory_order_relaxed))) {
    xReplace(word, nullptr);
    return;
  }
  // A large value that has come since the look counts as the earlier one. The word alone tells what
  // holds: what that value has left behind goes with the next large one.
  place.store(word, std::memory_order_release);
}

void GKMemoryCell::xReplace(std::uint64_t word, std::unique_ptr<const GKValue> large) {
  // The former large value is freed outside of the lock. A scalar that comes without the lock may
  // put itself in place of the word at any time, but never a large word: with one there is always
  // a large value.
  const std::lock_guard lock(lockOf(this));
  fLarge.swap(large);
  std::atomic_ref<std::uint64_t>(fWord).store(word, std::memory_order_release);
}

std::optional<GKValue> GKMemoryCell::xLoadLarge() const {
  const std::lock_guard lock(lockOf(this));
  return fLarge != nullptr ? std::optional(*fLarge) : std::nullopt;
}

struct GKMemoryStore::Table {
  GKNameTable<GKMemoryCell> cells;
};

GKMemoryStore::GKMemoryStore() : fTable(std::make_unique<Table>()) {}
GKMemoryStore::~GKMemoryStore() = default;

GKMemoryCell* GKMemoryStore::find(std::string_view key) const noexcept {
  GKMemoryCell* cell = fTable->cells.find(key);
  return cell != nullptr && cell->exists() ? cell : nullptr;
}

GKMemoryCell& GKMemoryStore::cell(std::string_view key) {
  return fTable->cells.get(key);
}

std::optional<GKValue> GKMemoryStore::get(std::string_view key) const {
  const GKMemoryCell* cell = find(key);
  return cell != nullptr ? std::optional(cell->load()) : std::nullopt;
}

std::vector<std::string> GKMemoryStore::keys() const {
  std::vector<std::string> names;
  fTable->cells.forEach([&names](std::string_view name, const GKMemoryCell& cell) {
    if (cell.exists()) {
      names.emplace_back(name);
    }
  });
  std::sort(names.begin(), names.end());
  return names;
}

std::size_t GKMemoryStore::size() const noexcept {
  std::size_t count = 0;
  fTable->cells.forEach(
      [&count](std::string_view, const GKMemoryCell& cell) { count += cell.exists() ? 1U : 0U; });
  return count;
}

} // namespace GK
