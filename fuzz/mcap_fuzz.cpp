#include "formats/mcap/Reader.h"
#include "formats/mcap/Recover.h"
#include "formats/mcap/Verify.h"
#include "formats/run/RunLogReader.h"
#include "messages/text/FormatError.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

// Any bytes as a recording: reading, checking and saving come to an end, and what was saved is
// whole and holds as many messages as were read.

namespace {

namespace mcap = gk::formats::mcap;

/// Enough for every shape of a chunk, small enough to try many.
constexpr std::uint64_t kMaxChunk = 1 << 20;

/// A block, and the same again as the one that follows it.
void readEntries(std::string_view block, const char* encoding) {
  gk::formats::RunLogReader entries;
  try {
    entries.begin(block, 1, encoding);
    while (entries.next()) {
    }
    entries.begin(block, 2, encoding);
    while (entries.next()) {
    }
  } catch (const gk::messages::FormatError&) {
    return;
  }
}

void read(std::string_view bytes) {
  mcap::MemorySource source(bytes);
  mcap::Reader reader(source, kMaxChunk);
  while (const auto item = reader.next()) {
    if (const auto* message = std::get_if<mcap::Message>(&*item)) {
      readEntries(message->data, gk::formats::kRunEncoding);
      readEntries(message->data, gk::formats::kFirstRunEncoding);
    }
  }
}

void save(std::string_view bytes) {
  mcap::MemorySource source(bytes);
  mcap::MemorySink sink;
  const mcap::Recovered saved = mcap::recover(source, sink, mcap::Compression::None);
  mcap::MemorySource written(sink.bytes());
  const mcap::Verdict verdict = mcap::verify(written);
  if (verdict.problems.count() != 0 || verdict.statistics.messageCount != saved.messages) {
    std::abort();
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  readEntries(bytes, gk::formats::kRunEncoding);
  readEntries(bytes, gk::formats::kFirstRunEncoding);
  try {
    read(bytes);
    mcap::MemorySource source(bytes);
    mcap::verify(source);
    save(bytes);
  } catch (const gk::messages::FormatError&) {
    return 0;
  }
  return 0;
}
