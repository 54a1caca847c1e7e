#include "devices/DeviceKeys.h"
#include "formats/recording/CsvRecording.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/PlayRecording.h"

// A table of device values as a file of any bytes, compressed ones included.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const gk::fuzz::MemoryFile file;
  if (file.write({data, size})) {
    gk::fuzz::playRecording([] {
      return std::make_unique<gk::formats::CsvRecording>(file.path(), gk::devices::keyTypeOf);
    });
  }
  return 0;
}
