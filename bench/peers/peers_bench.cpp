#include "bench/peers/Peer.h"
#include "gk/GKClock.h"

#include <benchmark/benchmark.h>
#include <string>
#include <string_view>
#include <thread>

// One float from a publisher to a subscriber on another thread of the same process: what an event
// costs beside other ways to get a value across. Real clock.

namespace {

using gk::bench::Peer;

/// From the first of a burst of values until the last has arrived; the time is that of one value.
void burst(benchmark::State& state, std::unique_ptr<Peer> (*make)()) {
  constexpr std::int64_t kBurst = 256;
  GK::GKClock::install(nullptr);
  const std::unique_ptr<Peer> peer = make();
  std::int64_t published = 0;
  while (state.KeepRunningBatch(kBurst)) {
    for (std::int64_t i = 0; i < kBurst; ++i) {
      peer->publish(1.0F);
    }
    published += kBurst;
    while (peer->received() < published) {
      std::this_thread::yield();
    }
  }
}

BENCHMARK_CAPTURE(burst, gksensors, gk::bench::makeEventPeer)->UseRealTime();
#ifdef GK_HAS_ZEROMQ
BENCHMARK_CAPTURE(burst, zeromq_inproc, gk::bench::makeZeroMqPeer)->UseRealTime();
#endif
#ifdef GK_HAS_CYCLONEDDS
BENCHMARK_CAPTURE(burst, cyclonedds, gk::bench::makeDdsPeer)->UseRealTime();
#endif
#ifdef GK_HAS_LCM
BENCHMARK_CAPTURE(burst, lcm_memq, gk::bench::makeLcmPeer)->UseRealTime();
#endif
#ifdef GK_HAS_ICEORYX
BENCHMARK_CAPTURE(burst, iceoryx, gk::bench::makeIceoryxPeer)->UseRealTime();
#endif

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  if constexpr (constexpr std::string_view missing = GK_MISSING_PEERS; !missing.empty()) {
    benchmark::AddCustomContext("not installed", std::string(missing));
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
