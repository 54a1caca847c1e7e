#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

namespace gk::messages {

/// A client may raise texts of a megabyte each, so that the number of what waits is no bound alone:
/// bytes that may wait for one reader.
constexpr std::size_t kBacklogBytes = 32U << 20U;

/// What waits to be looked at, within bounds: when there is too much of it, the oldest goes and is
/// counted. Not synchronised.
template <class Item> class Backlog {
public:
  /// `most`: items that are kept; `bytes`: what they may take. The newest one is always kept.
  explicit Backlog(std::size_t most, std::size_t bytes = kBacklogBytes)
      : fMost(most), fMostBytes(bytes) {}

  /// `bytes`: what the item takes in all.
  void add(Item item, std::size_t bytes) {
    fItems.push_back({std::move(item), bytes});
    fBytes += bytes;
    while (fItems.size() > 1 && (fItems.size() > fMost || fBytes > fMostBytes)) {
      fBytes -= fItems.front().bytes;
      fItems.pop_front();
      ++fDropped;
    }
  }

  bool isEmpty() const noexcept { return fItems.empty(); }

  /// The oldest ones, in their order, and no more than `most` of them, instead of what was in
  /// `into`.
  void take(std::vector<Item>& into, std::size_t most) {
    into.clear();
    into.reserve(std::min(most, fItems.size()));
    for (; !fItems.empty() && into.size() < most; fItems.pop_front()) {
      fBytes -= fItems.front().bytes;
      into.push_back(std::move(fItems.front().item));
    }
  }
  void takeAll(std::vector<Item>& into) { take(into, fItems.size()); }

  void clear() noexcept {
    fItems.clear();
    fBytes = 0;
  }

  /// Items that were dropped so far.
  std::uint64_t dropped() const noexcept { return fDropped; }

private:
  struct Entry {
    Item item;
    std::size_t bytes;
  };

  const std::size_t fMost;
  const std::size_t fMostBytes;
  std::deque<Entry> fItems;
  std::size_t fBytes = 0;
  std::uint64_t fDropped = 0;
};

} // namespace gk::messages
