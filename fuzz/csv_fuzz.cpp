#include "formats/recording/CsvRecording.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/PlayRecording.h"
#include "messages/keys/DeviceKeys.h"

// A table of device values as a file of any bytes, compressed ones included.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const gk::fuzz::MemoryFile file;
  if (file.write({data, size})) {
    gk::fuzz::playRecording([] {
      return std::make_unique<gk::formats::CsvRecording>(file.path(), gk::messages::keyTypeOf);
    });
  }
  return 0;
}
