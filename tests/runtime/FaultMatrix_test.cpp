#include "formats/OperationNames.h"
#include "runtime/Host.h"
#include "support/Program.h"
#include "zu/log.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

// Makes every single platform operation that the library performs fail, one run for each: at each
// use during the start, and at the first, a middle and the last use in the ticks and calls
// afterwards. Whatever fails, the process must live, go on ticking, answer calls (no lock stays
// held) and end in order.

namespace {

using GK::GKOperation;
using gk::test::ProgramResult;

const std::string kScenario = GK_SOURCE_DIR "/tests/runtime/everything.jsonl";

struct Use {
  GKOperation operation;
  std::string key;
  bool isStart;
};

/// Keeps what the library uses.
class UseRecorder : public GK::GKOperationHook {
public:
  void before(GKOperation operation, std::string_view key) override {
    uses.push_back({operation, std::string(key), isStart});
  }

  bool isStart = true;
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
  recorder->isStart = false;
  host.run();
  host.shutdown();
  return recorder->uses;
}

/// One place and occurrence: the use of `operation` on `key` that comes after `after` others.
using Case = std::tuple<GKOperation, std::string, std::size_t, bool>;

std::vector<Case> casesOf(const std::vector<Use>& uses) {
  struct Count {
    std::size_t start = 0;
    std::size_t all = 0;
  };
  std::map<std::pair<GKOperation, std::string>, Count> counts;
  for (const Use& use : uses) {
    Count& count = counts[{use.operation, use.key}];
    count.start += use.isStart ? 1 : 0;
    ++count.all;
  }
  std::vector<Case> cases;
  for (const auto& [place, count] : counts) {
    for (std::size_t i = 0; i < count.start; ++i) {
      cases.emplace_back(place.first, place.second, i, true);
    }
    const std::set<std::size_t> later = {count.start, (count.start + count.all) / 2, count.all - 1};
    for (const std::size_t i : later) {
      if (i >= count.start && i < count.all) {
        cases.emplace_back(place.first, place.second, i, false);
      }
    }
  }
  return cases;
}

std::string faultLine(const Case& one) {
  const auto& [operation, key, after, isStart] = one;
  const std::string name(gk::formats::operationName(operation));
  const std::string keyMember =
      gk::formats::operationHasKey(operation) ? ",\"key\":\"" + key + "\"" : "";
  return "{\"fail\":{\"operation\":\"" + name + "\"" + keyMember +
         ",\"after\":" + std::to_string(after) + "}}\n";
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(FaultMatrix, WhateverFailsTheProcessLivesTicksAnswersAndEndsInOrder) {
  const std::vector<Case> cases = casesOf(recordUses());
  ASSERT_FALSE(cases.empty());
  const gk::test::TemporaryFolder folder;
  const std::string fault = folder.file("fault.jsonl");
  std::size_t failedStarts = 0;
  std::size_t lostLoops = 0;
  std::size_t blindRuns = 0;
  for (const Case& one : cases) {
    SCOPED_TRACE(faultLine(one));
    gk::test::writeFile(fault, faultLine(one));
    const ProgramResult result = gk::test::runProgram(
        {GK_PROGRAM, "replay", "--out", "-", "--library", GK_LIBRARY, fault, kScenario});
    const bool isStart = std::get<bool>(one);
    if (result.code == 1 && isStart) {
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
    const bool isTheProbeItself = std::get<std::string>(one) == "FrontTactilTouched";
    if (!isTheProbeItself && !isBlind) {
      const std::string touched =
          "{\"t\":22,\"kind\":\"event\",\"name\":\"FrontTactilTouched\",\"value\":1.0}";
      EXPECT_EQ(contains(result.out, touched), !isLoopLost) << result.out;
    }
  }
  std::cout << cases.size() << " faults: " << failedStarts << " ended the start, " << lostLoops
            << " kept the loop from starting, " << blindRuns << " left sensors unconnected\n";
  RecordProperty("faults", static_cast<int>(cases.size()));
}

} // namespace
