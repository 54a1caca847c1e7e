#include "formats/lines/OperationNames.h"
#include "runtime/host/Host.h"
#include "support/Program.h"
#include "zu/log.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Makes every single platform operation that the library performs fail, one run for each: at each
// use during the start, at the first, a middle and the last use in the ticks and calls afterwards,
// and at each use during the shutdown. Whatever fails, the process must live, go on ticking, answer
// calls (no lock stays held) and end in order. Under AddressSanitizer it must not leak either: a
// leak has an exit code of its own.

namespace {

using GK::GKOperation;
using gk::test::ProgramResult;

const std::string kScenario = GK_SOURCE_DIR "/tests/runtime/everything.jsonl";

enum class Phase : std::uint8_t { Start, Run, Shutdown };

struct Use {
  GKOperation operation;
  std::string key;
  Phase phase;
};

/// Keeps what the library uses.
class UseRecorder : public GK::GKOperationHook {
public:
  void before(GKOperation operation, std::string_view key) override {
    uses.push_back({operation, std::string(key), phase});
  }

  Phase phase = Phase::Start;
  std::vector<Use> uses;
};

std::vector<Use> recordUses() {
  zu::log::setConsoleLevel(0);
  gk::runtime::HostOptions options;
  options.files = {kScenario};
  options.libraries = {GK_LIBRARY};
  options.isVirtual = true;
  options.endsWithInput = true;
  gk::runtime::Host host(options);
  const auto recorder = std::make_shared<UseRecorder>();
  GK::GKOperationHook::install(recorder);
  host.start();
  recorder->phase = Phase::Run;
  host.run();
  recorder->phase = Phase::Shutdown;
  host.shutdown();
  return recorder->uses;
}

/// One place and occurrence: the use of `operation` on `key` that comes after `after` others.
struct Case {
  GKOperation operation;
  std::string key;
  std::size_t after;
  Phase phase;
};

std::vector<Case> casesOf(const std::vector<Use>& uses) {
  std::map<std::pair<GKOperation, std::string>, std::vector<Phase>> places;
  for (const Use& use : uses) {
    places[{use.operation, use.key}].push_back(use.phase);
  }
  std::vector<Case> cases;
  for (const auto& [place, phases] : places) {
    const auto count = [&phases = phases](Phase phase) {
      return static_cast<std::size_t>(std::count(phases.begin(), phases.end(), phase));
    };
    const std::size_t runs = count(Phase::Run);
    const std::size_t first = count(Phase::Start);
    std::set<std::size_t> chosen;
    if (runs > 0) {
      chosen = {first, first + runs / 2, first + runs - 1};
    }
    for (std::size_t i = 0; i < phases.size(); ++i) {
      if (phases[i] != Phase::Run || chosen.contains(i)) {
        cases.push_back({place.first, place.second, i, phases[i]});
      }
    }
  }
  return cases;
}

std::string faultLine(const Case& one) {
  const std::string name(gk::formats::operationName(one.operation));
  const std::string keyMember =
      gk::formats::operationHasKey(one.operation) ? ",\"key\":\"" + one.key + "\"" : "";
  return "{\"fail\":{\"operation\":\"" + name + "\"" + keyMember +
         ",\"after\":" + std::to_string(one.after) + "}}\n";
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(FaultMatrix, WhateverFailsTheProcessLivesTicksAnswersAndEndsInOrder) {
  const std::vector<Case> cases = casesOf(recordUses());
  ASSERT_FALSE(cases.empty());
  const gk::test::TemporaryFolder folder;
  const std::string fault = folder.file("fault.jsonl");
  std::size_t atShutdown = 0;
  std::size_t failedStarts = 0;
  std::size_t lostLoops = 0;
  std::size_t blindRuns = 0;
  for (const Case& one : cases) {
    SCOPED_TRACE(faultLine(one));
    atShutdown += one.phase == Phase::Shutdown ? 1 : 0;
    gk::test::writeFile(fault, faultLine(one));
    const ProgramResult result = gk::test::runProgram(
        {GK_PROGRAM, "replay", "--out", "-", "--library", GK_LIBRARY, fault, kScenario});
    if (result.code == 1 && one.phase == Phase::Start) {
      // A module that could not be created: the host says which error ended the start.
      EXPECT_TRUE(contains(result.err, "injected fault")) << result.err;
      ++failedStarts;
      continue;
    }
    ASSERT_EQ(result.code, 0) << result.err;
    EXPECT_TRUE(contains(result.out, "\"call\":\"sensors answers\"")) << result.out;
    EXPECT_TRUE(contains(result.out, "\"call\":\"sonar answers\"")) << result.out;
    const bool isLoopLost = contains(result.out, "\"category\":\"platform.proxy\"");
    lostLoops += isLoopLost ? 1 : 0;
    // Sensors behind the one that could not be connected read as untouched, which the log says.
    const bool isBlind =
        contains(result.out, "\"text\":\"GKSensors Connection to GKMemory failed. Please check");
    blindRuns += isBlind ? 1 : 0;
    const bool isTheProbeItself = one.key == "FrontTactilTouched";
    if (!isTheProbeItself && !isBlind) {
      const std::string touched =
          "{\"t\":22,\"kind\":\"event\",\"name\":\"FrontTactilTouched\",\"value\":1.0}";
      EXPECT_EQ(contains(result.out, touched), !isLoopLost) << result.out;
    }
  }
  std::cout << cases.size() << " faults, " << atShutdown
            << " of them during shutdown: " << failedStarts << " ended the start, " << lostLoops
            << " kept the loop from starting, " << blindRuns << " left sensors unconnected\n";
  RecordProperty("faults", static_cast<int>(cases.size()));
}

} // namespace
