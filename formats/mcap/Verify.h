#pragma once

#include "formats/mcap/Records.h"
#include "formats/mcap/Scanner.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace gk::formats::mcap {

/// What a check of a whole file found.
struct Verdict {
  Problems problems;
  /// The file was cut off: it has no end.
  bool isCut = false;
  /// What the readable part holds.
  Statistics statistics;
};

/// Told how much has been done, 0 to 1.
using Progress = std::function<void(double)>;

/// Checks everything that a file says against everything else: all checksums (chunks, attachments,
/// data, summary), message indexes, chunk indexes, statistics, and the order of records. A changed
/// byte anywhere in a file of `Writer` is found.
///
/// Raises `FormatError` for what does not begin as an MCAP file does, and what `source` raises.
Verdict verify(Source& source, const Progress& progress = nullptr);

} // namespace gk::formats::mcap
