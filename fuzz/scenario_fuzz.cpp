#include "devices/DeviceKeys.h"
#include "formats/recording/ScenarioRecording.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/PlayRecording.h"

// A scenario as a file of any bytes.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const gk::fuzz::MemoryFile file;
  if (file.write({data, size})) {
    gk::fuzz::playRecording([] {
      return std::make_unique<gk::formats::ScenarioRecording>(file.path(), gk::devices::keyTypeOf);
    });
  }
  return 0;
}
