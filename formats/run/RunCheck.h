#pragma once

#include "formats/mcap/Scanner.h"
#include "formats/mcap/Source.h"
#include "formats/mcap/Verify.h"

namespace gk::formats {

/// What is wrong with the run in a recording, beyond what is wrong with the file: blocks of the log
/// that cannot be read, values of keys without a name, a run that is announced and not there. Of
/// files without a run nothing.
///
/// What `mcap::Reader` has to leave out is left out here as well: `mcap::verify` names it. Raises
/// `FormatError` for what does not begin as an MCAP file does, and what `source` raises.
mcap::Problems checkRun(mcap::Source& source, const mcap::Progress& progress = nullptr);

} // namespace gk::formats
