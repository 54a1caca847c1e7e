#pragma once

#include "formats/mcap/Compression.h"
#include "formats/mcap/Records.h"
#include "formats/mcap/Sink.h"
#include "formats/recording/Recording.h"

#include <functional>
#include <string>

/// Recordings from one kind of file to another.
namespace gk::formats {

/// Told how much has been done, 0 to 1.
using ConvertProgress = std::function<void(double)>;

/// Writes a recording of any kind as a run log without turns: what it plays, at the same times.
/// `about` goes into the metadata. Raises `InputError` and `OutputError`.
void convertToMcap(Recording& recording, mcap::Sink& sink, mcap::Compression compression,
                   mcap::StringMap about, const ConvertProgress& progress);

/// Takes pieces of text.
using TextSink = std::function<void(std::string_view)>;

/// Writes a recording as a scenario. Raises `InputError` and what `out` raises.
void convertToScenario(Recording& recording, const TextSink& out, const ConvertProgress& progress);

/// What does not fit into a table: actions other than "set", and values that are no numbers.
struct LeftOut {
  std::uint64_t actions = 0;
  std::uint64_t values = 0;
};

/// Writes the device values of a recording as a table. `open` opens the recording: it is read
/// twice, since the table's first line names all its columns. Returns what was left out. Raises
/// `InputError` and what `out` raises.
LeftOut convertToCsv(const std::function<std::unique_ptr<Recording>()>& open, const TextSink& out,
                     const ConvertProgress& progress);

} // namespace gk::formats
