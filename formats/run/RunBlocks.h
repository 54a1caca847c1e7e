#pragma once

#include "formats/mcap/Reader.h"
#include "formats/run/RunLogReader.h"
#include "messages/text/FormatError.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace gk::formats {

/// The entries of a run log that may be damaged: what cannot be read is left out and named. For one
/// thread.
class RunBlocks {
public:
  /// `reader` gives out the blocks. It and `problems` outlive this object.
  RunBlocks(const mcap::Reader& reader, mcap::Problems& problems)
      : fFile(reader), fProblems(problems) {}

  /// True for a message that the reader has given out, if it is a block of a run log.
  bool isBlock(const mcap::Message& message) const {
    return isRunEncoding(fFile.channel(message.channelId).messageEncoding);
  }

  /// The next block, the item that the reader has given out last.
  void begin(const mcap::Message& block);

  /// The next entry; nothing at the end of the block, or where the rest of it cannot be read.
  /// Values are those of keys with names.
  std::optional<RunEntry> next();

  /// A key by its number; null when the entry that told its name was lost.
  const std::string* key(std::uint64_t index) const {
    return index < fKeys.size() && !fKeys[index].empty() ? &fKeys[index] : nullptr;
  }

private:
  std::optional<RunEntry> xRead();
  void xName(const RunKey& key);
  void xFail(const messages::FormatError& error);
  void xComplain(const std::string& text);
  RunValues xNamed(const RunValues& values);

  const mcap::Reader& fFile;
  mcap::Problems& fProblems;
  RunLogReader fReader;
  /// What was wrong with the file when the last block began.
  std::uint64_t fFileProblems = 0;
  std::vector<std::string> fKeys;
  /// All keys below this number have names.
  std::size_t fNamedKeys = 0;
  std::vector<RunValue> fNamed;
  /// It was told already that values cannot be read since blocks are missing, and that the present
  /// block has values of keys of which the names are lost.
  bool fIsGapTold = false;
  bool fIsNameless = false;
};

} // namespace gk::formats
