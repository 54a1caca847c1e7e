#pragma once

#include "gk/GKMemoryStore.h"
#include "gk/GKTime.h"
#include "runtime/output/Reporter.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace gk::runtime {

/// Which values are reported after ticks.
struct SampleChoice {
  /// No keys: no samples.
  std::vector<std::string> keys;
  /// Leaves samples out that are what the one before was.
  bool isOnlyChanges = false;
  /// No samples before this time; they begin as if nothing had been before.
  GK::GKMicros from = 0;
  /// So many samples at most; unlimited without.
  std::optional<std::uint64_t> count;
};

/// Takes the chosen values after ticks. Any thread.
class Sampler {
public:
  Sampler(SampleChoice choice, std::shared_ptr<const GK::GKMemoryStore> store)
      : fChoice(std::move(choice)), fStore(std::move(store)) {}

  /// What is to be reported after a tick at `time`, keys that are not there left out; nothing when
  /// this tick has no sample.
  std::optional<Sample> take(GK::GKMicros time);

private:
  const SampleChoice fChoice;
  const std::shared_ptr<const GK::GKMemoryStore> fStore;
  std::mutex fMutex;
  std::uint64_t fTaken = 0;
  Sample fFormer;
};

} // namespace gk::runtime
