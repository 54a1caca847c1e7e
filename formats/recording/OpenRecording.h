#pragma once

#include "formats/recording/Recording.h"
#include "messages/json/KeyTypes.h"

#include <memory>
#include <string>

namespace gk::formats {

/// Opens a recording by its ending: ".csv" and ".jsonl", both also with ".gz", and ".mcap".
///
/// Reads as far as the first line with a time. Raises `InputError`.
std::unique_ptr<Recording> openRecording(const std::string& path, messages::KeyTypeOf keyTypeOf);

} // namespace gk::formats
