#pragma once

#include "formats/mcap/Reader.h"
#include "formats/mcap/Source.h"
#include "formats/run/RunBlocks.h"
#include "formats/text/InputError.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gk::formats {

/// What ran on which clock, as far as a replay has to know.
enum class RunClock : std::uint8_t {
  /// Nothing ran: the file holds input only.
  None,
  /// Turns were recorded, in real or in virtual time.
  Turns
};

/// The metadata of a file with what a host told viewers, and those of any recording about what it
/// lacks.
inline constexpr const char* kStreamMetadata = "gk.stream";
inline constexpr const char* kLossMetadata = "gk.losses";

/// The members of the metadata `kRunMetadata` that a replay reads.
inline constexpr const char* kClockMember = "clock";
inline constexpr const char* kTurnsClock = "turns";
/// Services that were left out, with commas between them.
inline constexpr const char* kWithoutMember = "without";

/// The run log in an MCAP file, read from the beginning to the end in memory that does not grow
/// with the file. What is damaged is left out and named by `problems`. For one thread.
class RunFile {
public:
  /// Raises `InputError` when the file cannot be read or has no run log.
  explicit RunFile(const std::string& path);

  /// All of it is going to be read: what comes next is decompressed by a second thread meanwhile.
  void readAhead() noexcept { fReader->readAhead(); }

  /// The next entry, nothing at the end. Keys are taken note of by the way.
  std::optional<RunEntry> next();

  /// What the file says about the run.
  const mcap::StringMap& about() const noexcept { return fAbout; }
  RunClock clock() const;

  /// A key by its number; null when the entry that told its name was lost.
  const std::string* key(std::uint64_t index) const { return fBlocks->key(index); }

  const std::string& path() const noexcept { return fPath; }
  bool isCut() const noexcept { return fReader->isCut(); }
  /// What is wrong with the file, as far as it has been read: one line each.
  std::vector<std::string> problems() const;
  /// How many there are, that the file was cut off not counted: what is there is whole then.
  std::uint64_t problemCount() const noexcept;
  double progress() const noexcept { return fReader->progress(); }

private:
  bool xNextBlock();

  std::string fPath;
  mcap::FileSource fSource;
  std::unique_ptr<mcap::Reader> fReader;
  mcap::StringMap fAbout;
  mcap::Problems fBadBlocks;
  std::unique_ptr<RunBlocks> fBlocks;
};

} // namespace gk::formats
