#include "formats/compare/ComparisonJson.h"

#include "messages/json/JsonWriter.h"
#include "messages/text/Numbers.h"

#include <map>
#include <string>

namespace gk::formats {

namespace {

/// Text is handed on in pieces of about this size.
constexpr std::size_t kPiece = std::size_t{64} * 1024;

void appendCounts(messages::JsonWriter& json, const DifferenceCounts& counts) {
  json.key("missing").unsignedInteger(counts.missing);
  json.key("extra").unsignedInteger(counts.extra);
  json.key("changed").unsignedInteger(counts.changed);
  json.key("moved").unsignedInteger(counts.moved);
}

void appendSide(messages::JsonWriter& json, const char* side, const ReportedValue* value,
                const ValuePool& pool) {
  if (value != nullptr) {
    std::string text;
    messages::appendSeconds(text, value->time);
    json.key(side).beginObject().key("t").raw(text);
    text.clear();
    pool.appendJson(text, value->word);
    json.key("value").raw(text).endObject();
  }
}

void appendFacts(messages::JsonWriter& json, const char* side, const ReportedRun& run) {
  json.key(side).beginObject();
  for (const auto& [name, text] : run.facts) {
    json.key(name).text(text);
  }
  json.endObject();
}

} // namespace

void writeComparison(const Comparison& comparison, std::string_view file, const TextTarget& out) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject();
  if (!file.empty()) {
    json.key("file").text(file);
  }
  json.key("same").boolean(comparison.isSame());
  appendCounts(json, comparison.counts());
  // Kinds of lines share their names' counts.
  std::map<std::string_view, DifferenceCounts> names;
  std::vector<std::string_view> windows;
  for (const Comparison::Name* name : comparison.names()) {
    names[name->name] += name->counts;
    if (name->isInWindows && (windows.empty() || windows.back() != name->name)) {
      windows.push_back(name->name);
    }
  }
  json.key("names").beginObject();
  for (const auto& [name, counts] : names) {
    json.key(name).beginObject();
    appendCounts(json, counts);
    json.endObject();
  }
  json.endObject().key("differences").beginArray();
  const ValuePool& pool = comparison.a().pool();
  comparison.forEach([&](const Comparison::Difference& difference) {
    json.beginObject().key("kind").text(differenceName(difference.kind));
    json.key("name").text(difference.name->name);
    appendSide(json, "a", difference.a, pool);
    appendSide(json, "b", difference.b, pool);
    json.endObject();
    if (text.size() >= kPiece) {
      out(text);
      text.clear();
    }
    return true;
  });
  json.endArray();
  const auto appendList = [&json](const char* member, const auto& words) {
    if (!words.empty()) {
      json.key(member).beginArray();
      for (const std::string_view word : words) {
        json.text(word);
      }
      json.endArray();
    }
  };
  appendList("windows", windows);
  std::vector<std::string_view> leftOut;
  for (const LineKind kind : comparison.leftOut()) {
    leftOut.push_back(lineKindName(kind));
  }
  appendList("left_out", leftOut);
  appendFacts(json, "a", comparison.a());
  appendFacts(json, "b", comparison.b());
  json.endObject();
  out(text + "\n");
}

} // namespace gk::formats
