#pragma once

#include "formats/mcap/Compression.h"
#include "formats/mcap/Sink.h"
#include "formats/mcap/Source.h"
#include "formats/mcap/Verify.h"

namespace gk::formats::mcap {

/// What was saved of a file, and what was wrong with it.
struct Recovered {
  std::uint64_t messages = 0;
  std::uint64_t attachments = 0;
  std::uint64_t metadata = 0;
  Problems problems;
  bool isCut = false;
};

/// Writes everything that can be read of a file as a new, whole one. The topic `apart` gets chunks
/// of its own. Raises `FormatError` for what
/// does not begin as an MCAP file does, `OutputError`, and what `source` raises.
Recovered recover(Source& source, Sink& sink, Compression compression,
                  const Progress& progress = nullptr, const std::string& apart = {});

} // namespace gk::formats::mcap
