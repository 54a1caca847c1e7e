#include "app/client/HostClient.h"
#include "app/client/HostStream.h"
#include "app/recordings/RecordingCommands.h"
#include "app/session/Complaints.h"
#include "app/session/RecordOptions.h"
#include "app/terminal/SignalWatch.h"
#include "formats/mcap/Sink.h"
#include "formats/mcap/Writer.h"
#include "formats/run/RunFile.h"
#include "formats/text/Printable.h"
#include "messages/json/JsonText.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fnmatch.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace gk::app {

namespace {

using Steady = std::chrono::steady_clock;

/// What is written is on the disk after this.
constexpr std::chrono::milliseconds kFlushTime{750};

constexpr const char* kLibrary = "gksensors " GK_VERSION;

struct RecordStreamOptions {
  ClientOptions client;
  std::string file;
  bool isOverwriting = false;
  std::vector<std::string> topics;
  std::optional<double> limit;
};

/// Messages of a host in a file. All operations raise `OutputError`.
class StreamFile {
public:
  StreamFile(const std::string& path, bool keepsEarlier)
      : fSink(path, {{}, keepsEarlier}),
        fWriter(fSink, {.level = formats::mcap::Compressor::kThorough, .library = kLibrary}) {}

  /// `host` has answered: the file is to stay.
  void begin(const std::string& host) {
    fWriter.addMetadata({formats::kStreamMetadata, {{"version", kLibrary}, {"host", host}}});
    fSink.file().appear();
  }

  void write(const HostChannel& channel, std::uint64_t time, std::string_view payload) {
    fWriter.write(xNumber(channel), time, time, payload);
  }

  void flush() {
    if (fWriter.hasOpenChunk()) {
      fWriter.closeChunk();
      fSink.sync();
    }
  }

  /// `losses`: what the host said of them last.
  void finish(const std::string& losses) {
    if (!losses.empty()) {
      fWriter.addMetadata({formats::kLossMetadata, {{"host", losses}}});
    }
    fWriter.finish();
    fSink.sync();
  }

  std::uint64_t messages() const noexcept { return fWriter.messageCount(); }
  std::uint64_t size() const noexcept { return fWriter.size(); }

private:
  std::uint16_t xNumber(const HostChannel& channel) {
    const auto [entry, isNew] = fChannels.try_emplace(channel.id);
    if (isNew) {
      entry->second = fWriter.addChannel(channel.topic, channel.encoding, xSchema(channel));
    }
    return entry->second;
  }

  std::uint16_t xSchema(const HostChannel& channel) {
    if (channel.schemaName.empty()) {
      return 0;
    }
    const auto [entry, isNew] =
        fSchemas.try_emplace({channel.schemaName, channel.schemaEncoding, channel.schema});
    if (isNew) {
      entry->second = fWriter.addSchema(channel.schemaName, channel.schemaEncoding, channel.schema);
    }
    return entry->second;
  }

  formats::mcap::FileSink fSink;
  formats::mcap::Writer fWriter;
  std::map<std::uint32_t, std::uint16_t> fChannels;
  std::map<std::tuple<std::string, std::string, std::string>, std::uint16_t> fSchemas;
};

/// The messages of a host in a file, and when that cannot be written any more in a new one with a
/// number, as soon as there is room.
class StreamRecording {
public:
  /// Raises `OutputError`.
  explicit StreamRecording(const RecordStreamOptions& options)
      : fOptions(options),
        fFile(std::make_unique<StreamFile>(options.file, !options.isOverwriting)),
        fName(options.file) {}

  bool hasBegun() const noexcept { return !fHost.empty(); }
  /// `host` has answered: the recording is to stay. Raises `OutputError`.
  void begin(const std::string& host) {
    fHost = host;
    fFile->begin(host);
  }

  void write(const HostChannel& channel, std::uint64_t time, std::string_view payload) {
    xTry([&] { fFile->write(channel, time, payload); });
    fLost += fFile == nullptr ? 1 : 0;
  }

  void flushIfDue() {
    const Steady::time_point now = Steady::now();
    if (now - fFlushed < kFlushTime) {
      return;
    }
    fFlushed = now;
    if (fFile == nullptr) {
      xGoOn();
    }
    xTry([&] { fFile->flush(); });
  }

  /// Raises `OutputError` for what went wrong at any time.
  void finish(const std::string& losses) {
    xTry([&] {
      fFile->finish(losses);
      xTell();
    });
    if (fError) {
      complain(fmt::format("the recording lacks {} messages or more", fLost));
      throw formats::OutputError(*fError);
    }
  }

private:
  template <class Work> void xTry(const Work& work) {
    try {
      if (fFile != nullptr) {
        work();
      }
    } catch (const formats::OutputError& error) {
      if (!fError) {
        fError = error;
      }
      complain(std::string(error.what()) +
               "; the recording goes on in a new file when there is room");
      xTell();
      fFile.reset();
    }
  }

  void xGoOn() {
    do {
      ++fNumber;
    } while (formats::isTaken(formats::partName(fOptions.file, fNumber)));
    const std::string name = formats::partName(fOptions.file, fNumber);
    try {
      auto file = std::make_unique<StreamFile>(name, true);
      file->begin(fHost);
      fFile = std::move(file);
      fName = name;
      complain("the recording goes on in " + name);
    } catch (const formats::OutputError&) {
      --fNumber; // the next time
    }
  }

  void xTell() const {
    if (fOptions.client.isJson) {
      std::string name;
      messages::appendJsonString(name, fName);
      fmt::print("{{\"file\":{},\"messages\":{},\"bytes\":{}}}\n", name, fFile->messages(),
                 fFile->size());
    } else {
      fmt::print(stderr, "recorded {}: {} messages, {} bytes\n", fName, fFile->messages(),
                 fFile->size());
    }
  }

  const RecordStreamOptions& fOptions;
  std::string fHost;
  /// Null while there is no room.
  std::unique_ptr<StreamFile> fFile;
  std::string fName;
  std::uint64_t fNumber = 1;
  std::uint64_t fLost = 0;
  std::optional<formats::OutputError> fError;
  Steady::time_point fFlushed = Steady::now();
};

/// What is told in another way as well has to be asked for.
bool isWanted(const std::vector<std::string>& patterns, const HostChannel& channel) {
  if (patterns.empty()) {
    return channel.encoding == "json";
  }
  return std::ranges::any_of(patterns, [&channel](const std::string& pattern) {
    return fnmatch(pattern.c_str(), channel.topic.c_str(), 0) == 0;
  });
}

/// Records until `isEnd`; the file is complete whichever way that comes.
void record(const RecordStreamOptions& options, const std::atomic<bool>& isEnd) {
  StreamRecording recording(options);
  HostClient client(options.client);
  std::string losses;
  HostStream::Handlers handlers;
  handlers.wants = [&](const HostChannel& channel) {
    // Not before: an old recording is not lost to a wrong address.
    if (!recording.hasBegun()) {
      recording.begin(client.address().text());
    }
    return isWanted(options.topics, channel);
  };
  handlers.message = [&](const HostChannel& channel, std::uint64_t time, std::string_view payload) {
    recording.write(channel, time, payload);
    return true;
  };
  handlers.status = [&losses](const std::string& said) {
    losses = said;
    complain(formats::printable(said));
  };
  handlers.meanwhile = [&] {
    recording.flushIfDue();
    return !isEnd;
  };
  const auto finish = [&] {
    if (recording.hasBegun()) {
      recording.finish(losses);
    }
  };
  try {
    HostStream(client).run({}, handlers);
  } catch (const ClientError&) {
    finish();
    throw;
  }
  finish();
}

int recordStream(const RecordStreamOptions& options) {
  blockWatchedSignals();
  std::atomic<bool> isEnd = false;
  std::optional<std::chrono::microseconds> limit;
  if (options.limit) {
    limit = std::chrono::microseconds(*messages::toMicros(*options.limit));
  }
  const SignalWatch watch([&isEnd](const EndWish&) { isEnd = true; }, limit);
  try {
    return runClient([&] {
      record(options, isEnd);
      return kSuccess;
    });
  } catch (const formats::OutputError& error) {
    return complainOf(error);
  }
}

} // namespace

void addRecordCommand(const Command& program) {
  const Command command =
      program.subcommand("record", "Record what a running host tells viewers, until Ctrl-C");
  auto options = std::make_shared<RecordStreamOptions>();
  command.option("FILE", options->file, "The recording (.mcap)")
      .required()
      .checked(checkRecordingName)
      .shows("");
  addOverwriteFlag(command, options->isOverwriting);
  command.option("--topic", options->topics, "Only topics of this name, with * for anything")
      .shows("TOPIC")
      .onceEach();
  command.option("--for", options->limit, "End after this many seconds")
      .within(0.0, 1e9)
      .shows("SECONDS");
  addClientOptions(command, options->client);
  command.does([options] { return recordStream(*options); });
}

} // namespace gk::app
