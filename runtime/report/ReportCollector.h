#pragma once

#include "devices/meaning/Verdict.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"
#include "runtime/report/Trace.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace gk::runtime {

/// What a report tells of a run, in memory that does not grow with the run beyond some bounds.
struct ReportData {
  struct Event {
    bool isMicro = false;
    std::uint64_t count = 0;
    /// The first ones: time and value as JSON.
    std::vector<std::pair<GK::GKMicros, std::string>> raises;
    std::string lastValue;
    /// What has been said in words, each sentence once and with what it is worth, and which one
    /// belongs to each of `raises`. Empty for events that have no words.
    std::vector<std::pair<std::string, int>> words;
    std::vector<std::size_t> said;
    /// The most that one of them is worth, as `devices::Importance` has it.
    int importance = 0;
  };
  struct LogLine {
    GK::GKMicros time = 0;
    int level = 0;
    std::string category;
    std::string text;
  };
  struct Series {
    std::string name;
    Trace trace;
  };
  struct Plot {
    std::string title;
    std::string unit;
    std::vector<Series> series;
  };

  std::map<std::string, Event> events;
  std::uint64_t raises = 0;
  std::uint64_t ticks = 0;
  GK::GKMicros end = 0;
  /// Errors and warnings, the first ones.
  std::vector<LogLine> log;
  std::uint64_t errors = 0;
  std::uint64_t warnings = 0;
  std::vector<Plot> plots;
  /// Titles of plots that would show nothing but start values: nobody measured that.
  std::vector<std::string> absent;
  /// What mattered, in the order in which it began.
  struct Matter {
    GK::GKMicros since = 0;
    GK::GKMicros until = 0;
    std::string text;
    std::string subject;
    bool isError = false;
  };
  std::vector<Matter> matters;
  std::uint64_t matterCount = 0;
  /// How long each pose was announced.
  std::map<std::string, GK::GKMicros> poses;
};

/// What happened in the run, in a few sentences.
std::vector<std::string> storyOf(const ReportData& data);

/// Collects a report: an observer of one run. From any thread.
class ReportCollector final : public GK::GKObserver {
public:
  static constexpr std::size_t kMostRaises = 2000;
  static constexpr std::size_t kMostLogLines = 500;
  static constexpr std::size_t kMostMatters = 100;
  static constexpr std::size_t kMostWords = 100;
  /// How often what matters is looked at.
  static constexpr GK::GKMicros kLookTime = 100'000;
  /// Of the joints, the hottest ones are drawn.
  static constexpr std::size_t kHottestJoints = 6;

  explicit ReportCollector(std::shared_ptr<const GK::GKMemoryStore> store);

  void onNotice(const GK::GKNotice& notice) override;
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;

  /// What was collected, after the run.
  ReportData take();

private:
  struct Source {
    std::string key;
    Trace* trace = nullptr;
    const GK::GKMemoryCell* cell = nullptr;
  };

  void xAddRaise(const GK::GKNotice& notice);
  void xLook(GK::GKMicros time);
  void xAddPlot(const std::string& title, const std::string& unit,
                const std::vector<std::pair<std::string, std::string>>& namesAndKeys);

  std::shared_ptr<const GK::GKMemoryStore> fStore;
  GK::GKPriorityMutex fMutex;
  ReportData fData;
  std::vector<Source> fSources;
  devices::Verdict fVerdict;
  GK::GKMicros fNextLook = 0;
  std::string fPose;
  GK::GKMicros fPoseTime = 0;
};

} // namespace gk::runtime
