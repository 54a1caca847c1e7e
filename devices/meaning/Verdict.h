#pragma once

#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gk::devices {

/// How bad something is, as the `status` methods of modules number it too.
enum class Level : std::uint8_t { Fine = 0, Warning = 1, Error = 2 };

/// Something about the robot or its host that somebody should know now.
struct Matter {
  /// Microseconds since the start of the run.
  GK::GKMicros since = 0;
  Level level = Level::Warning;
  /// Plain sentences without a full stop; there may be nothing to advise.
  std::string text;
  std::string advice;
  /// Named like a channel where there is one ("pose", "feet"), else "keys", "loop", "recording",
  /// "disk", "clients", or the module that tells it.
  std::string subject;

  bool operator==(const Matter&) const = default;
};

/// Something that a module tells of itself.
struct ModuleMatter {
  std::string module;
  /// One of its matters is told from another by this.
  std::string name;
  Level level = Level::Fine;
  std::string text;
};

/// How the host itself is getting on.
struct HostCondition {
  struct Loop {
    std::string module;
    /// End of its last tick.
    GK::GKMicros last = 0;
  };
  std::vector<Loop> loops;
  /// When a device key changed last; nothing where that is not looked at.
  std::optional<GK::GKMicros> deviceChange;
  /// Why the recording stands still; empty while all is well.
  std::string recordingTrouble;
  /// What the recording could not keep, and what clients have lost, since the start.
  std::uint64_t lostBlocks = 0;
  std::uint64_t lostMessages = 0;
  std::uint64_t lostEvents = 0;
  /// What modules tell of themselves; what is fine does not matter.
  std::vector<ModuleMatter> modules;
};

/// What matters now, worst first: decided from events, memory keys and the host's condition. The
/// rules stand in one table in the source, and in docs/verdict.md. For one thread at a time.
class Verdict {
public:
  /// A tick of a loop that takes longer than this hangs, and robots tremble more often than this.
  static constexpr GK::GKMicros kLongestSilence = 1'000'000;
  static constexpr GK::GKMicros kFreshness = 5'000'000;
  /// By how much the charge of a battery that is low must rise to be better.
  static constexpr float kChargeStep = 0.02F;
  /// A viewer's loss is told of for so long.
  static constexpr GK::GKMicros kLossMemory = 60'000'000;

  /// An event tells when something began more exactly than keys do.
  void onNotice(const GK::GKNotice& notice);

  /// Looks at everything. `store` may be null, where there is no memory service.
  const std::vector<Matter>& look(GK::GKMicros now, const GK::GKMemoryStore* store,
                                  const HostCondition& host);

  /// As of the last look.
  const std::vector<Matter>& matters() const noexcept { return fMatters; }

private:
  enum class Rule : std::uint8_t;

  void xLookAtLoops(GK::GKMicros now, const HostCondition& host);
  void xLookAtPose(GK::GKMicros now, const GK::GKMemoryStore& store);
  void xLookAtHeat(GK::GKMicros now, const GK::GKMemoryStore& store);
  void xLookAtKeys(GK::GKMicros now, const HostCondition& host);
  void xLookAtRecording(GK::GKMicros now, const HostCondition& host);
  void xLookAtBattery(GK::GKMicros now, const GK::GKMemoryStore& store);
  void xLookAtClients(GK::GKMicros now, const HostCondition& host);
  void xLookAtModules(GK::GKMicros now, const HostCondition& host);

  /// This rule applies, since `since` unless it did at the last look already. `what` stands for the
  /// braces of the rule's text.
  void xApplies(Rule rule, Level level, GK::GKMicros since, std::string_view what = {});
  /// The same for a matter with words of its own; `key` tells it from others of the rule.
  void xApplies(Rule rule, const std::string& key, Matter matter);

  std::vector<Matter> fMatters;
  /// Since when which rule applies, by the rule and what it is about: at the last look, and so far
  /// at this one.
  using Since = std::map<std::pair<Rule, std::string>, GK::GKMicros>;
  Since fBefore;
  Since fNow;
  std::vector<std::pair<Rule, Matter>> fFound;

  /// The pose that was announced last, when, and the last upright one before it.
  std::string fPose;
  GK::GKMicros fPoseTime = 0;
  bool fWasUpright = false;
  std::optional<GK::GKMicros> fOffFloor;
  Level fBattery = Level::Fine;
  std::uint64_t fLostEvents = 0;
  std::optional<GK::GKMicros> fLastLoss;
};

/// `[{"since":12.34,"level":2,"text":...,"advice":...,"subject":...}]`.
std::string verdictJson(const std::vector<Matter>& matters);

} // namespace gk::devices
