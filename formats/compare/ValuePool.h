#pragma once

#include "gk/GKValue.h"

#include <bit>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

namespace gk::formats {

/// Values as words of eight bytes, so that millions of them can be kept and compared. Numbers and
/// bools stand in their words; of texts and arrays each different one is kept once. For one thread.
class ValuePool {
public:
  /// Type in the upper half, bits or number in the lower one.
  using Word = std::uint64_t;

  /// The same word for the same value, and for no other; every NaN is the same.
  Word word(const GK::GKValue& value);

  GK::GKValue value(Word word) const;
  void appendJson(std::string& out, Word word) const;

  /// An order of values that depends on nothing but them: negative when `left` comes first.
  int order(Word left, Word right) const;

  static GK::GKValue::Type typeOf(Word word) noexcept {
    return static_cast<GK::GKValue::Type>(word >> kTypeShift);
  }
  /// Of a float's word.
  static float floatOf(Word word) noexcept {
    return std::bit_cast<float>(static_cast<std::uint32_t>(word));
  }

private:
  static constexpr int kTypeShift = 32;

  static Word xWord(GK::GKValue::Type type, std::uint32_t bits) noexcept {
    return static_cast<Word>(type) << kTypeShift | bits;
  }
  static bool xIsLarge(Word word) noexcept {
    return typeOf(word) == GK::GKValue::Type::String || typeOf(word) == GK::GKValue::Type::Array;
  }
  const std::string& xText(Word word) const { return *fTexts[static_cast<std::uint32_t>(word)]; }

  /// Texts and arrays as JSON, and by number.
  std::unordered_map<std::string, std::uint32_t> fNumbers;
  std::deque<const std::string*> fTexts;
};

/// When two values count as the same: equal, or floats, also in arrays, that are no further apart
/// than a tolerance. A value stands for all decimal numbers that are rounded to it, so that 1.0 and
/// 1.1 are 0.1 apart.
class SameWithin {
public:
  SameWithin(const ValuePool& pool, double tolerance) : fPool(pool), fTolerance(tolerance) {}

  bool operator()(ValuePool::Word left, ValuePool::Word right) const {
    return left == right || xIsNear(left, right);
  }

  /// Only the very same words count as the same, but for 0.0 and -0.0.
  bool isExact() const noexcept { return fTolerance <= 0; }

private:
  bool xIsNear(ValuePool::Word left, ValuePool::Word right) const;
  bool xIsNear(float left, float right) const;
  bool xIsNear(const GK::GKValue& left, const GK::GKValue& right) const;

  const ValuePool& fPool;
  const double fTolerance;
};

} // namespace gk::formats
