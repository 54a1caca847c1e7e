#pragma once

#include "formats/json/KeyTypes.h"
#include "formats/recording/Recording.h"
#include "formats/recording/TimeOrder.h"
#include "formats/text/LineReader.h"

#include <string>

namespace gk::formats {

/// A scenario: one JSON object a line, first those without a time, then those with one.
class ScenarioRecording final : public Recording {
public:
  ScenarioRecording(const std::string& path, KeyTypeOf keyTypeOf);

  void play(RecordingTarget& target) override;
  void skip() override;
  double progress() const noexcept override { return fReader.progress(); }

private:
  void xReadLine();

  LineReader fReader;
  KeyTypeOf fKeyTypeOf;
  TimeOrder fOrder;
  /// What the current line asks for.
  Action fAction;
  bool fHasStarted = false;
};

} // namespace gk::formats
