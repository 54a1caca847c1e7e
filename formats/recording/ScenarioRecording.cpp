#include "formats/recording/ScenarioRecording.h"

#include "formats/lines/ScenarioLine.h"
#include "formats/recording/TestFile.h"

#include <utility>

namespace gk::formats {

ScenarioRecording::ScenarioRecording(const std::string& path, messages::KeyTypeOf keyTypeOf,
                                     bool isCompanion)
    : fReader(path), fKeyTypeOf(std::move(keyTypeOf)), fIsCompanion(isCompanion) {
  xReadLine();
}

void ScenarioRecording::play(RecordingTarget& target) {
  try {
    if (fAction) {
      target.act(*fAction);
    }
  } catch (const messages::FormatError& error) {
    throw fReader.error(error.what());
  }
  xReadLine();
}

void ScenarioRecording::skip() {
  xReadLine();
}

void ScenarioRecording::xReadLine() {
  fTime.reset();
  try {
    while (const std::optional<std::string_view> text = fReader.next()) {
      if (isScenarioComment(*text)) {
        continue;
      }
      if ((fIsCompanion || mayBeTestLine(*text)) && xPassTestLine(*text)) {
        if (fTime) {
          return;
        }
        continue;
      }
      fHasLines = true;
      ScenarioLine line = parseScenarioLine(*text, fKeyTypeOf);
      if (line.time) {
        fHasStarted = true;
        fTime = fOrder.take(*line.time);
        fAction = std::move(line.action);
        return;
      }
      if (fHasStarted) {
        throw messages::FormatError("a line without \"t\" after one with \"t\"");
      }
      fPreload.push_back(std::move(line.action));
    }
  } catch (const messages::FormatError& error) {
    throw fReader.error(error.what());
  }
}

bool ScenarioRecording::xPassTestLine(std::string_view text) {
  const std::optional<TestLine> line = readTestLine(text);
  if (!line) {
    if (fIsCompanion) {
      throw messages::FormatError(kNoExpectation);
    }
    return false;
  }
  if (std::holds_alternative<FileOptions>(line->what)) {
    if (fHasLines) {
      throw messages::FormatError(kLateOptions);
    }
  } else if (!fIsCompanion && !canBeReadTwice(fReader.path())) {
    throw messages::FormatError(kReadOnce);
  }
  fHasLines = true;
  if (line->time) {
    fHasStarted = true;
    const GK::GKMicros time = fOrder.take(*line->time);
    if (std::holds_alternative<EndMark>(line->what)) {
      fAction.reset();
      fTime = time;
    }
  }
  return true;
}

} // namespace gk::formats
