#include "formats/text/Printable.h"

#include <gtest/gtest.h>

using gk::formats::printable;

TEST(Printable, OrdinaryTextStaysAsItIs) {
  for (const char* text : {"", "robotPoseChanged", "Grüße", "\xE2\x82\xAC 5", "\xF0\x9F\xA4\x96"}) {
    EXPECT_EQ(printable(text), text);
  }
}

TEST(Printable, WhatATerminalObeysIsShownAsQuestionMarks) {
  EXPECT_EQ(printable("\x1b[2J"), "?[2J");
  EXPECT_EQ(printable("a\nb\rc\td\x7f"), "a?b?c?d?");
  EXPECT_EQ(printable(std::string_view("\0", 1)), "?");
  // The eight-bit form of ESC [ (U+009B), as UTF-8 and as a byte.
  EXPECT_EQ(printable("\xC2\x9B"
                      "2J"),
            "?2J");
  EXPECT_EQ(printable("\x9B"
                      "2J"),
            "?2J");
  EXPECT_EQ(printable("\xC2\xA0"), "\xC2\xA0");
}

TEST(Printable, WhatTurnsTheDirectionOrBreaksTheLineIsShownAsQuestionMarks) {
  // U+200E, U+2028, U+202E, U+2066, U+061C, and their neighbours that stay.
  EXPECT_EQ(printable("\xE2\x80\x8E|\xE2\x80\xA8|\xE2\x80\xAE|\xE2\x81\xA6|\xD8\x9C"), "?|?|?|?|?");
  EXPECT_EQ(printable("\xE2\x80\x8D|\xE2\x80\xAF|\xE2\x81\xA5"),
            "\xE2\x80\x8D|\xE2\x80\xAF|\xE2\x81\xA5");
}

TEST(Printable, BytesThatAreNoCharacterAreShownOneByOne) {
  EXPECT_EQ(printable("\xFF|\xC3(|\xE2\x82"), "?|?(|??");
}
