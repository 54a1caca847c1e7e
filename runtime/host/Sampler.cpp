#include "runtime/host/Sampler.h"

#include "messages/json/SameValue.h"

#include <algorithm>

namespace gk::runtime {

namespace {

bool isSameSample(const Sample& left, const Sample& right) {
  return std::equal(
      left.begin(), left.end(), right.begin(), right.end(), [](const auto& one, const auto& other) {
        return one.first == other.first && messages::isSameValue(one.second, other.second);
      });
}

} // namespace

std::optional<Sample> Sampler::take(GK::GKMicros time) {
  if (fChoice.keys.empty() || time < fChoice.from) {
    return std::nullopt;
  }
  const std::lock_guard lock(fMutex);
  if (fChoice.count && fTaken >= *fChoice.count) {
    return std::nullopt;
  }
  Sample values;
  for (const std::string& key : fChoice.keys) {
    if (std::optional<GK::GKValue> value = fStore->get(key)) {
      values.emplace_back(key, *std::move(value));
    }
  }
  if (fChoice.isOnlyChanges) {
    if (fTaken > 0 && isSameSample(values, fFormer)) {
      return std::nullopt;
    }
    fFormer = values;
  }
  ++fTaken;
  return values;
}

} // namespace gk::runtime
