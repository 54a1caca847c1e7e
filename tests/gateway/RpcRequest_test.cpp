#include "gateway/robot/RpcRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace gk::gateway {
namespace {

using testing::HasSubstr;

/// The error of the only call; a failure of the test when there is none.
RpcError onlyError(const std::string& body) {
  const RpcRequest request = parseRpcRequest(body);
  EXPECT_EQ(request.calls.size(), 1U) << body;
  EXPECT_TRUE(request.calls.front().error.has_value()) << body;
  return request.calls.front().error.value_or(RpcError{0, "", ""});
}

TEST(RpcRequest, OneCallIsTakenApart) {
  const RpcRequest request = parseRpcRequest(
      R"({"jsonrpc":"2.0","id":"a","method":"GKSonar.getMyPeriod","params":["x"]})");
  ASSERT_EQ(request.calls.size(), 1U);
  EXPECT_FALSE(request.isBatch);
  const RpcCall& call = request.calls.front();
  EXPECT_FALSE(call.error.has_value());
  EXPECT_FALSE(call.isNotification());
  EXPECT_EQ(call.id, R"("a")");
  EXPECT_EQ(call.module, "GKSonar");
  EXPECT_EQ(call.method, "getMyPeriod");
  EXPECT_TRUE(call.params.is_array());
}

TEST(RpcRequest, WithoutAnIdItIsANotificationAndNullIsAnId) {
  EXPECT_TRUE(parseRpcRequest(R"({"jsonrpc":"2.0","method":"M.m"})").calls[0].isNotification());
  const RpcCall call = parseRpcRequest(R"({"jsonrpc":"2.0","id":null,"method":"M.m"})").calls[0];
  EXPECT_FALSE(call.isNotification());
  EXPECT_EQ(call.id, "null");
}

TEST(RpcRequest, IdsComeBackAsTheyWere) {
  const auto idOf = [](const std::string& id) {
    return parseRpcRequest(R"({"jsonrpc":"2.0","method":"M.m","id":)" + id + "}").calls[0].id;
  };
  EXPECT_EQ(idOf("7"), "7");
  EXPECT_EQ(idOf("-1.5"), "-1.5");
  EXPECT_EQ(idOf(R"("\"q\"")"), R"("\"q\"")");
}

TEST(RpcRequest, WhatCannotBeReadIsAParseErrorWithTheIdNull) {
  for (const char* body : {"", "{", "nonsense", "[1,", R"({"a":1,"a":2})"}) {
    const RpcRequest request = parseRpcRequest(body);
    EXPECT_EQ(onlyError(body).code, kParseError) << body;
    EXPECT_EQ(request.calls[0].id, "null") << body;
  }
}

TEST(RpcRequest, WhatIsNoRequestIsInvalid) {
  for (const char* body : {"5", "null", "{}", R"({"jsonrpc":"1.0","id":1,"method":"M.m"})",
                           R"({"jsonrpc":"2.0","id":1})", R"({"jsonrpc":"2.0","id":1,"method":5})",
                           R"({"jsonrpc":"2.0","id":[],"method":"M.m"})",
                           R"({"jsonrpc":"2.0","id":1,"method":"M.m","params":5})"}) {
    EXPECT_EQ(onlyError(body).code, kInvalidRequest) << body;
  }
}

TEST(RpcRequest, AnIdThatCannotBeSentBackAsItIsIsRefused) {
  EXPECT_EQ(onlyError(R"({"jsonrpc":"2.0","id":1e400,"method":"M.m"})").code, kInvalidRequest);
  EXPECT_EQ(onlyError(R"({"jsonrpc":"2.0","id":99999999999999999999,"method":"M.m"})").code,
            kParseError);
  EXPECT_EQ(
      parseRpcRequest(R"({"jsonrpc":"2.0","id":9223372036854775807,"method":"M.m"})").calls[0].id,
      "9223372036854775807");
}

TEST(RpcRequest, InvalidRequestsAreAnsweredEvenWithoutAnId) {
  EXPECT_EQ(parseRpcRequest(R"({"method":"M.m"})").calls[0].id, "null");
  EXPECT_EQ(parseRpcRequest(R"({"id":3,"method":"M.m"})").calls[0].id, "3");
}

TEST(RpcRequest, AMethodWithoutAModuleIsNotThere) {
  EXPECT_EQ(onlyError(R"({"jsonrpc":"2.0","id":1,"method":"getData"})").code, kNoSuchMethod);
}

TEST(RpcRequest, ABatchKeepsItsOrderAndItsBrokenParts) {
  const RpcRequest request = parseRpcRequest(
      R"([{"jsonrpc":"2.0","id":1,"method":"A.a"},5,{"jsonrpc":"2.0","method":"B.b"}])");
  EXPECT_TRUE(request.isBatch);
  ASSERT_EQ(request.calls.size(), 3U);
  EXPECT_EQ(request.calls[0].module, "A");
  EXPECT_EQ(request.calls[1].error->code, kInvalidRequest);
  EXPECT_TRUE(request.calls[2].isNotification());
}

TEST(RpcRequest, AnEmptyBatchAndOneBeyondTheLimitAreOneError) {
  EXPECT_EQ(onlyError("[]").code, kInvalidRequest);
  std::string full = "[";
  for (std::size_t i = 0; i < kMaxBatch; ++i) {
    full += std::string(i == 0 ? "" : ",") + R"({"jsonrpc":"2.0","method":"M.m"})";
  }
  EXPECT_EQ(parseRpcRequest(full + "]").calls.size(), kMaxBatch);
  EXPECT_EQ(onlyError(full + ",5]").code, kInvalidRequest);
}

TEST(RpcRequest, NestingIsReadToADepthOf32) {
  const auto nested = [](std::size_t depth) {
    return R"({"jsonrpc":"2.0","id":1,"method":"M.m","params":)" + std::string(depth, '[') +
           std::string(depth, ']') + "}";
  };
  EXPECT_FALSE(parseRpcRequest(nested(31)).calls[0].error.has_value());
  EXPECT_EQ(onlyError(nested(32)).code, kParseError);
  EXPECT_EQ(onlyError(std::string(100000, '[')).code, kParseError);
}

TEST(RpcReply, ResultsAndErrorsAreWritten) {
  std::string text;
  const GK::GKValue value(1.0F);
  appendRpcResult(text, "1", &value);
  EXPECT_EQ(text, R"({"jsonrpc":"2.0","id":1,"result":1.0})");
  text.clear();
  appendRpcResult(text, R"("x")", nullptr);
  EXPECT_EQ(text, R"({"jsonrpc":"2.0","id":"x","result":null})");
  text.clear();
  appendRpcError(text, "2", raisedError(GK::GKError("M", "m", "why")));
  EXPECT_EQ(text, R"({"jsonrpc":"2.0","id":2,"error":{"code":-32000,"message":"M::m: why",)"
                  R"("data":{"module":"M","method":"m","description":"why"}}})");
}

} // namespace
} // namespace gk::gateway
