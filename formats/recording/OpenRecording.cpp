#include "formats/recording/OpenRecording.h"

#include "formats/recording/CsvRecording.h"
#include "formats/recording/McapRecording.h"
#include "formats/recording/ScenarioRecording.h"
#include "formats/recording/TestFile.h"

#include <string_view>
#include <utility>

namespace gk::formats {

std::unique_ptr<Recording> openRecording(const std::string& path, messages::KeyTypeOf keyTypeOf) {
  if (isBesideInputs(path)) {
    throw InputError(path, 0, "lies beside an input with what is expected of it, and is none");
  }
  constexpr std::string_view compressed = ".gz";
  std::string_view name = path;
  if (name.ends_with(compressed)) {
    name.remove_suffix(compressed.size());
  }
  if (name.ends_with(".csv")) {
    return std::make_unique<CsvRecording>(path, keyTypeOf);
  }
  if (name.ends_with(".jsonl")) {
    return std::make_unique<ScenarioRecording>(path, std::move(keyTypeOf));
  }
  if (path.ends_with(".mcap")) {
    return std::make_unique<McapRecording>(path);
  }
  throw InputError(path, 0, "unknown kind of file, not .csv, .csv.gz, .jsonl, .jsonl.gz or .mcap");
}

} // namespace gk::formats
