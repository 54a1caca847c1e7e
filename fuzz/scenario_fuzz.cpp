#include "formats/recording/ScenarioRecording.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/PlayRecording.h"
#include "messages/keys/DeviceKeys.h"

// A scenario as a file of any bytes.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const gk::fuzz::MemoryFile file;
  if (file.write({data, size})) {
    gk::fuzz::playRecording([] {
      return std::make_unique<gk::formats::ScenarioRecording>(file.path(), gk::messages::keyTypeOf);
    });
  }
  return 0;
}
