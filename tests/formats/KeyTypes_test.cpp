#include "formats/recording/OpenRecording.h"
#include "formats/text/InputError.h"
#include "messages/json/Json.h"
#include "messages/json/KeyTypes.h"
#include "TempFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace gk::formats;
using namespace gk::messages;
using GK::GKValue;

namespace {

std::string refusalOf(KeyType type, std::string_view json) {
  try {
    valueForKey(type, parseJson(json));
    return "";
  } catch (const FormatError& error) {
    return error.what();
  }
}

} // namespace

TEST(KeyTypes, BoolAndTextKeysTakeNothingElse) {
  EXPECT_EQ(valueForKey(KeyType::Bool, parseJson("true")), GKValue(true));
  EXPECT_EQ(valueForKey(KeyType::Text, parseJson("\"Sit\"")), GKValue("Sit"));
  EXPECT_EQ(refusalOf(KeyType::Bool, "1"), "takes a bool, not 1");
  EXPECT_EQ(refusalOf(KeyType::Bool, "\"true\""), "takes a bool, not \"true\"");
  EXPECT_EQ(refusalOf(KeyType::Text, "true"), "takes a string, not true");
  EXPECT_EQ(refusalOf(KeyType::Text, "null"), "takes a string, not null");
}

namespace {

/// What is wrong with a file when keys have these types, from the line's number on.
std::string endingErrorOf(std::string_view ending, std::string_view content,
                          const KeyTypeOf& typeOf) {
  const TempFile file(ending, content);
  try {
    openRecording(file.path(), typeOf);
    return "";
  } catch (const InputError& error) {
    return std::string(error.what()).substr(file.path().size() + 1);
  }
}

KeyType refuseGhosts(std::string_view key) {
  if (key.starts_with("Ghost/")) {
    throw FormatError("there is no such key");
  }
  return key == "Switch" ? KeyType::Bool : key == "Name" ? KeyType::Text : KeyType::Float;
}

/// Refuses whatever a line asks for.
class Grumpy : public RecordingTarget {
public:
  GK::GKMemoryCell* column(const std::string&) override { return nullptr; }
  void act(const Action&) override { throw FormatError("not in this house"); }
};

} // namespace

TEST(KeyTypes, AKeyThatMustNotBeWrittenIsMalformedInput) {
  EXPECT_EQ(endingErrorOf(".csv", "time,Ghost/Key\n0,1\n", refuseGhosts),
            "1: column \"Ghost/Key\": there is no such key");
  EXPECT_EQ(endingErrorOf(".jsonl", "\n{\"set\":{\"Ghost/Key\":1}}\n", refuseGhosts),
            "2: key \"Ghost/Key\": there is no such key");
}

TEST(KeyTypes, TablesHoldNumbersOnly) {
  for (const char* key : {"Switch", "Name"}) {
    EXPECT_EQ(endingErrorOf(".csv", "time," + std::string(key) + "\n0,1\n", refuseGhosts),
              "1: column \"" + std::string(key) + "\": a table holds numbers only");
  }
}

TEST(KeyTypes, ALineThatIsRefusedWhenItIsPlayedIsNamed) {
  const TempFile file(".jsonl", "# first\n{\"t\":1,\"set\":{\"Key\":1}}\n");
  const auto recording = openRecording(file.path(), refuseGhosts);
  Grumpy target;
  try {
    recording->play(target);
    FAIL();
  } catch (const InputError& error) {
    EXPECT_EQ(error.what(), file.path() + ":2: not in this house");
  }
}
