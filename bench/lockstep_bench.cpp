#include "devices/DeviceLayer.h"
#include "devices/sim/Simulation.h"
#include "gk/GKMemoryStore.h"
#include "messages/keys/DeviceKeys.h"

#include <array>
#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

// What a step of 20 ms of the simulated robot costs a program that moves its time over pipes, and
// what the physics of it cost alone. The difference has to stay below 40 us.

namespace {

constexpr GK::GKMicros kFrame = 20'000;

void physics(benchmark::State& state) {
  const auto store = std::make_shared<GK::GKMemoryStore>();
  gk::devices::DeviceLayer(store, gk::messages::simulatedKeys()).publish();
  gk::devices::Simulation sut(store, {});
  sut.start();
  GK::GKMicros time = 0;
  for (auto _ : state) {
    time += kFrame;
    sut.advance(time);
  }
}
BENCHMARK(physics)->Unit(benchmark::kMicrosecond)->UseRealTime();

/// `gk run --lockstep` at the other end of two pipes.
class Robot {
public:
  Robot() {
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    if (pipe(in.data()) != 0 || pipe(out.data()) != 0) {
      std::abort();
    }
    fPid = fork();
    if (fPid == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      for (const int end : {in[0], in[1], out[0], out[1]}) {
        close(end);
      }
      execl(GK_PROGRAM, "gk", "run", "--lockstep", "--quiet", nullptr);
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    fIn = in[1];
    fOut = out[0];
  }
  ~Robot() {
    close(fIn);
    close(fOut);
    waitpid(fPid, nullptr, 0);
  }
  Robot(const Robot&) = delete;
  Robot& operator=(const Robot&) = delete;

  void advance(const std::string& seconds) {
    const std::string request =
        R"({"jsonrpc":"2.0","id":1,"method":"Clock.advance","params":[)" + seconds + "]}\n";
    if (write(fIn, request.data(), request.size()) != static_cast<ssize_t>(request.size())) {
      std::abort();
    }
    ssize_t count = 0;
    do {
      count = read(fOut, fAnswer.data(), fAnswer.size());
      if (count <= 0) {
        std::abort();
      }
    } while (fAnswer[static_cast<std::size_t>(count) - 1] != '\n');
  }

private:
  pid_t fPid = -1;
  int fIn = -1;
  int fOut = -1;
  std::array<char, 65536> fAnswer{};
};

void steps(benchmark::State& state) {
  Robot sut;
  sut.advance("1");
  for (auto _ : state) {
    sut.advance("0.02");
  }
}
BENCHMARK(steps)->Unit(benchmark::kMicrosecond)->UseRealTime();

/// The same without a stop after each: what the pipes, the requests and the waiting cost.
void inOneGo(benchmark::State& state) {
  Robot sut;
  sut.advance("1");
  for (auto _ : state) {
    sut.advance("20");
  }
  state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(inOneGo)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
