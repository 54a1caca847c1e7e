#pragma once

#include "formats/recording/Recording.h"
#include "formats/recording/TimeOrder.h"
#include "formats/text/LineReader.h"
#include "messages/json/KeyTypes.h"

#include <optional>
#include <string>
#include <string_view>

namespace gk::formats {

/// A scenario: one JSON object a line, first those without a time, then those with one.
///
/// Expectations and options are checked and otherwise passed over: whoever wants them reads them
/// before (`readTestFile`). At an "end" nothing is carried out.
class ScenarioRecording final : public Recording {
public:
  /// `isCompanion`: what stands beside another input, with no actions in it.
  ScenarioRecording(const std::string& path, messages::KeyTypeOf keyTypeOf,
                    bool isCompanion = false);

  void play(RecordingTarget& target) override;
  void skip() override;
  double progress() const noexcept override { return fReader.progress(); }

private:
  void xReadLine();
  /// Reads a line that is not to be carried out. False for another line.
  bool xPassTestLine(std::string_view text);

  LineReader fReader;
  messages::KeyTypeOf fKeyTypeOf;
  TimeOrder fOrder;
  const bool fIsCompanion;
  /// What the current line asks for; nothing at an "end".
  std::optional<Action> fAction;
  bool fHasLines = false;
  bool fHasStarted = false;
};

} // namespace gk::formats
