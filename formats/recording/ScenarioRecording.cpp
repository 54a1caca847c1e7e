#include "formats/recording/ScenarioRecording.h"

#include "formats/lines/ScenarioLine.h"

#include <string_view>
#include <utility>

namespace gk::formats {

ScenarioRecording::ScenarioRecording(const std::string& path, KeyTypeOf keyTypeOf)
    : fReader(path), fKeyTypeOf(std::move(keyTypeOf)) {
  xReadLine();
}

void ScenarioRecording::play(RecordingTarget& target) {
  try {
    target.act(fAction);
  } catch (const FormatError& error) {
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
      ScenarioLine line = parseScenarioLine(*text, fKeyTypeOf);
      if (line.time) {
        fHasStarted = true;
        fTime = fOrder.take(*line.time);
        fAction = std::move(line.action);
        return;
      }
      if (fHasStarted) {
        throw FormatError("a line without \"t\" after one with \"t\"");
      }
      fPreload.push_back(std::move(line.action));
    }
  } catch (const FormatError& error) {
    throw fReader.error(error.what());
  }
}

} // namespace gk::formats
