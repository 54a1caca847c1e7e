#pragma once

#include "formats/mcap/Reader.h"
#include "formats/mcap/Verify.h"
#include "formats/mcap/Writer.h"

#include <string>
#include <vector>

namespace gk::formats::mcap {

/// The program that test files name.
inline constexpr const char* kTestLibrary = "gksensors-test";

/// A whole file of `chunks` chunks with three messages each on two channels, a metadata record and
/// an attachment. Message n carries {"n": n} and has the time n * 1000.
inline std::string makeFile(Compression compression = Compression::Zstd, int chunks = 3) {
  MemorySink sink;
  Writer writer(sink, {.compression = compression, .library = kTestLibrary});
  const std::uint16_t schema = writer.addSchema("count", "jsonschema", R"({"type":"object"})");
  const std::uint16_t first = writer.addChannel("/first", "json", schema, {{"unit", "1"}});
  const std::uint16_t second = writer.addChannel("/second", "json", 0);
  writer.addMetadata({"about", {{"robot", "test"}}});
  std::uint64_t number = 0;
  for (int chunk = 0; chunk < chunks; ++chunk) {
    for (const std::uint16_t channel : {first, second, first}) {
      ++number;
      writer.write(channel, number * 1000, number * 1000, "{\"n\":" + std::to_string(number) + "}");
    }
    writer.closeChunk();
  }
  writer.addAttachment({1, 2, "note.txt", "text/plain", "a note", 0});
  writer.finish();
  return sink.bytes();
}

/// The data of all messages that can be read.
inline std::vector<std::string> messagesOf(Reader& reader) {
  std::vector<std::string> messages;
  while (const std::optional<Item> item = reader.next()) {
    if (const auto* message = std::get_if<Message>(&*item)) {
      messages.emplace_back(message->data);
    }
  }
  return messages;
}

inline std::vector<std::string> messagesOf(std::string_view file) {
  MemorySource source(file);
  Reader reader(source);
  return messagesOf(reader);
}

inline Verdict verdictOf(std::string_view file) {
  MemorySource source(file);
  return verify(source);
}

/// The data of the first `count` messages that `makeFile` writes.
inline std::vector<std::string> firstMessages(std::size_t count) {
  std::vector<std::string> messages;
  for (std::size_t number = 1; number <= count; ++number) {
    messages.push_back("{\"n\":" + std::to_string(number) + "}");
  }
  return messages;
}

} // namespace gk::formats::mcap
