#include "formats/recording/CsvRecording.h"
#include "formats/recording/OpenRecording.h"
#include "InputErrorOf.h"
#include "PlayedTo.h"
#include "TempFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace gk::formats;
using namespace gk::messages;
using GK::GKValue;
using testing::ElementsAre;
using testing::EndsWith;

namespace {

std::string csvErrorOf(std::string_view content) {
  return inputErrorOf(".csv", content);
}

std::vector<GK::GKMicros> timesOf(std::string_view content) {
  const TempFile file(".csv", content);
  const auto sut = openRecording(file.path(), testKeyType);
  std::vector<GK::GKMicros> times;
  for (; sut->time(); sut->skip()) {
    times.push_back(*sut->time());
  }
  return times;
}

/// What the first column's cell holds after a row with `cell`.
GKValue valueOf(const std::string& key, const std::string& cell) {
  const TempFile file(".csv", "time," + key + "\n0," + cell + "\n");
  PlayedTo target;
  openRecording(file.path(), testKeyType)->play(target);
  return target.memory.get(key).value_or("nothing");
}

std::string cellError(const std::string& key, const std::string& cell) {
  return csvErrorOf("time," + key + "\n0," + cell + "\n");
}

} // namespace

TEST(CsvRecording, RowsAreWrittenOneByOne) {
  const TempFile file(".csv", "time,float/a,int/b\n0,0.5,3\n0.02,1.5,4\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  EXPECT_EQ(sut->time(), 0);
  EXPECT_TRUE(sut->preload().empty());
  sut->play(target);
  EXPECT_EQ(target.memory.get("float/a"), GKValue(0.5F));
  EXPECT_EQ(target.memory.get("int/b"), GKValue(3));
  EXPECT_EQ(sut->time(), 20'000);
  sut->play(target);
  EXPECT_EQ(target.memory.get("float/a"), GKValue(1.5F));
  EXPECT_EQ(target.memory.get("int/b"), GKValue(4));
  EXPECT_EQ(sut->time(), std::nullopt);
}

TEST(CsvRecording, NothingIsWrittenBeforeItsTime) {
  const TempFile file(".csv", "time,float/a\n0,0.5\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  EXPECT_TRUE(target.columns.empty());
}

TEST(CsvRecording, ASkippedRowIsNotWritten) {
  const TempFile file(".csv", "time,float/a,float/b\n0,1,1\n1,2,\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  sut->skip();
  EXPECT_EQ(sut->time(), 1'000'000);
  sut->play(target);
  EXPECT_EQ(target.memory.get("float/a"), GKValue(2.0F));
  EXPECT_EQ(target.memory.get("float/b"), std::nullopt);
}

TEST(CsvRecording, ColumnsAreAskedForOnce) {
  const TempFile file(".csv", "time,float/a,float/b\n0,1,1\n1,2,2\n2,3,3\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  while (sut->time()) {
    sut->play(target);
  }
  EXPECT_THAT(target.columns, ElementsAre("float/a", "float/b"));
}

TEST(CsvRecording, AColumnThatIsNotWantedIsOnlyChecked) {
  const TempFile file(".csv", "time,float/a,float/b\n0,1,2\n1,x,2\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  target.refused = "float/a";
  EXPECT_THROW(sut->play(target), InputError);
  EXPECT_EQ(target.memory.get("float/a"), std::nullopt);
  EXPECT_EQ(target.memory.get("float/b"), GKValue(2.0F));
  EXPECT_EQ(sut->time(), std::nullopt);
}

TEST(CsvRecording, AnEmptyCellLeavesTheKeyUnchanged) {
  const TempFile file(".csv", "time,float/a,float/b\n0,1,2\n1,,3\n2,4,\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  sut->play(target);
  sut->play(target);
  EXPECT_EQ(target.memory.get("float/a"), GKValue(1.0F));
  EXPECT_EQ(target.memory.get("float/b"), GKValue(3.0F));
  sut->play(target);
  EXPECT_EQ(target.memory.get("float/a"), GKValue(4.0F));
  EXPECT_EQ(target.memory.get("float/b"), GKValue(3.0F));
}

TEST(CsvRecording, OnlyIntKeysAreInts) {
  EXPECT_EQ(valueOf("int/a", "34"), GKValue(34));
  EXPECT_EQ(valueOf("int/a", "34.0"), GKValue(34));
  EXPECT_EQ(valueOf("float/a", "34"), GKValue(34.0F));
  EXPECT_EQ(valueOf("other", "34"), GKValue(34.0F));
}

TEST(CsvRecording, FloatCellsAreReadExactly) {
  EXPECT_EQ(valueOf("float/a", "0.1"), GKValue(0.1F));
  EXPECT_EQ(valueOf("float/a", "-1.5e-3"), GKValue(-1.5e-3F));
  EXPECT_TRUE(std::signbit(valueOf("float/a", "-0.0").toFloat()));
  EXPECT_EQ(valueOf("float/a", "3000000000"), GKValue(3e9F));
}

TEST(CsvRecording, NonFiniteCellsAreFloats) {
  EXPECT_TRUE(std::isnan(valueOf("float/a", "nan").toFloat()));
  EXPECT_EQ(valueOf("float/a", "inf"), GKValue(std::numeric_limits<float>::infinity()));
  EXPECT_EQ(valueOf("float/a", "-inf"), GKValue(-std::numeric_limits<float>::infinity()));
  EXPECT_EQ(cellError("float/a", "NaN"), "2: column \"float/a\": \"NaN\" is no number");
  EXPECT_EQ(cellError("float/a", "infinity"), "2: column \"float/a\": \"infinity\" is no number");
  EXPECT_EQ(cellError("int/a", "nan"), "2: column \"int/a\": \"nan\" is no int of 32 bits");
}

TEST(CsvRecording, ACellThatIsNoNumberIsAnError) {
  for (const char* cell : {"abc", " 1", "1 ", "1.5x", "+1", "0x1", "true", "\"1\"", "1;2"}) {
    EXPECT_THAT(cellError("float/a", cell), EndsWith(" is no number")) << cell;
  }
  EXPECT_EQ(cellError("float/a", "a b"), "2: column \"float/a\": \"a b\" is no number");
}

TEST(CsvRecording, AFractionOrALargeNumberIsNoInt) {
  EXPECT_EQ(cellError("int/a", "34.5"), "2: column \"int/a\": \"34.5\" is no int of 32 bits");
  EXPECT_EQ(valueOf("int/a", "2147483647"), GKValue(2147483647));
  EXPECT_EQ(cellError("int/a", "2147483648"),
            "2: column \"int/a\": \"2147483648\" is no int of 32 bits");
}

TEST(CsvRecording, ErrorsNameTheLine) {
  EXPECT_EQ(csvErrorOf("time,float/a\n0,1\n1,2\n2,x\n3,4\n"),
            "4: column \"float/a\": \"x\" is no number");
}

TEST(CsvRecording, ARowHasACellForEachColumn) {
  EXPECT_EQ(csvErrorOf("time,a,b\n0,1\n"), "2: the row has 2 cells, the header 3");
  EXPECT_EQ(timesOf("time,a,b\n0,1,\n").size(), 1U);
  EXPECT_EQ(csvErrorOf("time,a,b\n0,1,2,\n"), "2: the row has 4 cells, the header 3");
  EXPECT_EQ(csvErrorOf("time,a,b\n0\n"), "2: the row has 1 cells, the header 3");
  EXPECT_EQ(csvErrorOf("time\n0,1\n"), "2: the row has 2 cells, the header 1");
}

TEST(CsvRecording, TheHeaderBeginsWithTime) {
  EXPECT_EQ(csvErrorOf(""), "1: no header, which begins with \"time\"");
  EXPECT_EQ(csvErrorOf("\n0\n"), "1: the header's first column is \"\", not \"time\"");
  EXPECT_EQ(csvErrorOf("0,1\n1,2\n"), "1: the header's first column is \"0\", not \"time\"");
  EXPECT_EQ(csvErrorOf("Time,a\n"), "1: the header's first column is \"Time\", not \"time\"");
  EXPECT_EQ(csvErrorOf(" time,a\n"), "1: the header's first column is \" time\", not \"time\"");
  EXPECT_EQ(csvErrorOf("a,time\n"), "1: the header's first column is \"a\", not \"time\"");
}

TEST(CsvRecording, KeysOfTheHeaderAreThereAndDifferent) {
  EXPECT_EQ(csvErrorOf("time,a,,b\n"), "1: column 3 has no key");
  EXPECT_EQ(csvErrorOf("time,a,b,\n"), "1: column 4 has no key");
  EXPECT_EQ(csvErrorOf("time,a,b,a\n"), "1: column \"a\" stands twice");
  EXPECT_EQ(csvErrorOf("time,time\n"), "1: column \"time\" stands twice");
}

TEST(CsvRecording, AHeaderAloneIsARecordingWithoutRows) {
  EXPECT_THAT(timesOf("time,a\n"), ElementsAre());
  EXPECT_THAT(timesOf("time"), ElementsAre());
}

TEST(CsvRecording, TimesAreSecondsInMicroseconds) {
  EXPECT_THAT(timesOf("time,a\n0,\n0.02,\n0.02,\n1.5,\n1e1,\n10.0000004,\n"),
              ElementsAre(0, 20'000, 20'000, 1'500'000, 10'000'000, 10'000'000));
}

TEST(CsvRecording, TimesDoNotGoBack) {
  EXPECT_EQ(csvErrorOf("time,a\n1,\n1,\n0.999999,\n"), "4: time goes back from 1 to 0.999999");
  EXPECT_EQ(csvErrorOf("time,a\n1,\n0.99999999,\n"), "3: time goes back from 1 to 0.99999999");
}

TEST(CsvRecording, TimesAreFiniteAndNotNegative) {
  EXPECT_EQ(csvErrorOf("time,a\n-0.5,\n"), "2: time -0.5 is negative");
  EXPECT_EQ(timesOf("time,a\n-0.0,\n").size(), 1U);
  EXPECT_EQ(csvErrorOf("time,a\n,1\n"), "2: column \"time\": \"\" is no time in seconds");
  EXPECT_EQ(csvErrorOf("time,a\nnan,1\n"), "2: column \"time\": \"nan\" is no time in seconds");
  EXPECT_EQ(csvErrorOf("time,a\ninf,1\n"), "2: column \"time\": \"inf\" is no time in seconds");
  EXPECT_EQ(csvErrorOf("time,a\n 1,1\n"), "2: column \"time\": \" 1\" is no time in seconds");
  EXPECT_EQ(csvErrorOf("time,a\n1e400,1\n"), "2: time inf is too large");
  EXPECT_EQ(csvErrorOf("time,a\n5e12,1\n"), "2: time 5e+12 is too large");
}

TEST(CsvRecording, BlankLinesStandAtTheEndOnly) {
  EXPECT_THAT(timesOf("time,a\n0,1\n\n\r\n\n"), ElementsAre(0));
  EXPECT_EQ(csvErrorOf("time,a\n0,1\n\n\n1,1\n"), "3: a blank line before the end");
  EXPECT_EQ(csvErrorOf("time,a\n\n0,1\n"), "2: a blank line before the end");
}

TEST(CsvRecording, NamesAreUtf8) {
  EXPECT_EQ(csvErrorOf("time,Temp\xE9rature\n0,1\n"),
            "1: column \"Temp\xEF\xBF\xBDrature\" is not UTF-8");
  EXPECT_THAT(timesOf("time,Temp\xC3\xA9rature\n0,1\n"), ElementsAre(0));
}

TEST(CsvRecording, WindowsFilesAreFine) {
  const TempFile file(".csv", "\xEF\xBB\xBFtime,float/a\r\n0,1.5\r\n1,2.5\r\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  sut->play(target);
  EXPECT_EQ(target.memory.get("float/a"), GKValue(1.5F));
  EXPECT_EQ(sut->time(), 1'000'000);
}

TEST(CsvRecording, GzippedTablesAreRead) {
  const TempFile file = TempFile::gzipped(".csv.gz", "time,float/a\n0.5,1.5\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  EXPECT_EQ(sut->time(), 500'000);
  sut->play(target);
  EXPECT_EQ(target.memory.get("float/a"), GKValue(1.5F));
}

TEST(Recording, TheEndingTellsTheKind) {
  for (const char* ending : {".csv", ".csv.gz"}) {
    const TempFile file(ending, "time\n1\n");
    EXPECT_EQ(openRecording(file.path(), testKeyType)->time(), 1'000'000) << ending;
  }
  for (const char* ending : {".jsonl", ".jsonl.gz"}) {
    const TempFile file(ending, "{\"t\":1,\"exit\":true}\n");
    EXPECT_EQ(openRecording(file.path(), testKeyType)->time(), 1'000'000) << ending;
  }
}

TEST(Recording, OtherEndingsAreRefused) {
  for (const std::string path : {"a.json", "a.CSV", "a.gz", "a", "csv", "a.csv.gz.gz", "a.txt"}) {
    try {
      openRecording(path, testKeyType);
      ADD_FAILURE() << path;
    } catch (const InputError& error) {
      EXPECT_EQ(error.what(), path + ": unknown kind of file, not .csv, .csv.gz, .jsonl, "
                                     ".jsonl.gz or .mcap");
    }
  }
}
