#include "formats/text/LiveRows.h"

#include <gtest/gtest.h>

namespace {

using gk::formats::LiveRow;
using gk::formats::LiveRows;

constexpr std::size_t kColumns = 40;

std::string shown(LiveRows& sut, double time, const std::string& name, const std::string& value) {
  std::string out;
  sut.append(out, {time, "event", name, value, true});
  return out;
}

LiveRows::Style folding() {
  return {false, [] { return kColumns; }};
}

TEST(LiveRows, TheSameValueWithinThreeSecondsIsCountedOnALineThatIsNotFinished) {
  LiveRows sut(folding());
  EXPECT_EQ(shown(sut, 1, "A", "1.0"), "     1.000  event    A            1.0\n");
  // One column is left free: a full line would break.
  EXPECT_EQ(shown(sut, 4, "A", "1.0"), "     4.000  event    A            "
                                       "  x 2");
  EXPECT_EQ(shown(sut, 7, "A", "1.0"), "\r\x1b[K     7.000  event    A            "
                                       "  x 3");
  std::string end;
  sut.finish(end);
  EXPECT_EQ(end, "\r\x1b[K     7.000  event    A            1.0  x 3\n");
}

TEST(LiveRows, ALongerPauseOrAnotherValueEndsTheCounting) {
  LiveRows sut(folding());
  shown(sut, 1, "A", "1.0");
  shown(sut, 2, "A", "1.0");
  EXPECT_EQ(shown(sut, 3, "A", "0.0"), "\r\x1b[K     2.000  event    A            1.0  x 2\n"
                                       "     3.000  event    A            0.0\n");
  EXPECT_EQ(shown(sut, 6.001, "A", "0.0"), "     6.001  event    A            0.0\n");
}

TEST(LiveRows, OthersInBetweenDoNotEndTheCountingAndAreNotWrittenOver) {
  LiveRows sut(folding());
  shown(sut, 1, "A", "1.0");
  shown(sut, 2, "A", "1.0");
  EXPECT_EQ(shown(sut, 2.5, "B", "1.0"), "\r\x1b[K     2.500  event    B            1.0\n");
  std::string printed;
  sut.appendLines(printed, "a module's own line\n");
  EXPECT_EQ(printed, "a module's own line\n");
  EXPECT_EQ(shown(sut, 3, "A", "1.0"), "     3.000  event    A            "
                                       "  x 3");
}

TEST(LiveRows, WithoutATerminalEachIsALine) {
  LiveRows sut({});
  shown(sut, 1, "A", "1.0");
  EXPECT_EQ(shown(sut, 2, "A", "1.0"),
            "     2.000  event    A                                  1.0\n");
  std::string end;
  sut.finish(end);
  EXPECT_EQ(end, "");
}

TEST(LiveRows, SwitchesAndWordsStandOutNumbersThatDriftDoNot) {
  LiveRows sut({true, {}});
  const auto colour = [&sut](double time, const std::string& value, const char* name = "A") {
    const std::string row = shown(sut, time, name, value);
    const std::size_t end = row.find("mevent");
    const std::size_t begin = row.rfind('[', end) + 1;
    return row.substr(begin, end - begin);
  };
  EXPECT_EQ(colour(1, "1.0"), "1");
  EXPECT_EQ(colour(2, "0.0"), "1");
  EXPECT_EQ(colour(3, "0.0"), "2");
  EXPECT_EQ(colour(4, "true"), "1");
  EXPECT_EQ(colour(5, "\"Stand\""), "1;32");
  EXPECT_EQ(colour(6, "3.9"), "0");
  EXPECT_EQ(colour(7, "0.0", "OffFromTheStart"), "0");
}

} // namespace
