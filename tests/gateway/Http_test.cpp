#include "gateway/http/Http.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace gk::gateway {
namespace {

TEST(Target, PathAndQueryAreDecoded) {
  const auto target = parseTarget("/a%20b/c?x=1&y=%26&z&x=2");
  ASSERT_TRUE(target.has_value());
  EXPECT_EQ(target->path, "/a b/c");
  EXPECT_EQ(target->find("x"), "1");
  EXPECT_EQ(target->find("y"), "&");
  EXPECT_EQ(target->find("z"), "");
  EXPECT_EQ(target->find("w"), "");
}

TEST(Target, AnEmptyQueryIsNone) {
  EXPECT_TRUE(parseTarget("/?")->query.empty());
  EXPECT_TRUE(parseTarget("/")->query.empty());
}

TEST(Target, WhatIsNoneIsRefused) {
  for (const char* text : {"", "x", "http://host/", "*", "/%", "/%4", "/%zz", "/a%00b", "/?a=%0"}) {
    EXPECT_FALSE(parseTarget(text).has_value()) << text;
  }
}

TEST(ErrorResponse, TextsAreEscaped) {
  const HttpResponse response = errorResponse(404, "no \"key\"\n");
  EXPECT_EQ(response.status, 404U);
  EXPECT_EQ(response.body, R"({"error":{"message":"no \"key\"\n"}})");
}

} // namespace
} // namespace gk::gateway
