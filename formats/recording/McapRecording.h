#pragma once

#include "formats/recording/Recording.h"
#include "formats/run/RunFile.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace gk::formats {

/// The input of a recorded run as an input file like any other: values and actions at the times at
/// which they came, while the turns in between are left out.
class McapRecording final : public Recording {
public:
  explicit McapRecording(const std::string& path);

  void play(RecordingTarget& target) override;
  void skip() override { xReadLine(); }
  double progress() const noexcept override { return fFile.progress(); }
  std::vector<std::string> problems() const override { return fFile.problems(); }
  bool isComplete() const noexcept override { return fFile.problemCount() == 0; }

private:
  void xReadPreload();
  /// Reads what came in at one turn. Leaves out turns at which nothing did.
  void xReadLine();
  GK::GKMemoryCell* xCell(std::uint64_t index, RecordingTarget& target);

  RunFile fFile;
  /// The turn that begins behind the current line.
  std::optional<RunTurn> fFollowing;
  std::vector<std::pair<std::uint64_t, GK::GKValue>> fValues;
  std::vector<Action> fActions;
  /// By number of the key; null before its first value.
  std::vector<GK::GKMemoryCell*> fCells;
};

} // namespace gk::formats
