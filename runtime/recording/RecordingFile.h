#pragma once

#include "formats/mcap/Sink.h"
#include "formats/mcap/Writer.h"
#include "runtime/recording/RecordedMessages.h"
#include "runtime/recording/RunRecorder.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace gk::runtime {

/// What could not be kept.
struct RecordingLosses {
  std::uint64_t blocks = 0;
  std::uint64_t messages = 0;
  std::uint64_t overlaps = 0;
};

/// One file of a recording. All operations raise `OutputError`. For one thread.
class RecordingFile {
public:
  /// `library`: the program that writes. `chunkSize`: bytes at which a chunk is closed.
  RecordingFile(const std::string& path, const formats::OutputFileOptions& options,
                const std::string& library, std::size_t chunkSize);

  /// Gives the file its name: without that nothing is left of it.
  void appear() { fSink.file().appear(); }
  bool hasAppeared() noexcept { return fSink.file().hasAppeared(); }

  /// Before everything else. `epoch`: microseconds since 1970 at time 0 of the run; `about`: what
  /// the file says of the run.
  void begin(std::int64_t epoch, const formats::mcap::StringMap& about);
  bool hasBegun() const noexcept { return fHasBegun; }

  void write(const RunBlock& block);
  void write(const RecordedMessage& message);

  /// What was written so far survives the loss of power.
  void flush();
  /// Completes the file.
  void finish(const RecordingLosses& losses);

  std::uint64_t size() const noexcept { return fWriter.size(); }

private:
  std::uint64_t xNanoseconds(GK::GKMicros time) const;
  std::uint16_t xChannel(const RecordedChannel& channel);

  formats::mcap::FileSink fSink;
  formats::mcap::Writer fWriter;
  std::int64_t fEpoch = 0;
  bool fHasBegun = false;
  std::uint16_t fRunChannel = 0;
  std::map<const RecordedChannel*, std::uint16_t> fChannels;
  /// By schema name.
  std::map<std::string, std::uint16_t> fSchemas;
};

} // namespace gk::runtime
