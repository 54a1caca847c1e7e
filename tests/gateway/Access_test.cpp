#include "gateway/http/Access.h"
#include "support/Environment.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace gk::gateway {
namespace {

using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::HasSubstr;

const std::string kToken = "0123456789abcdef0123456789abcdef";

Access openAt(const std::string& address, const std::string& token = {}) {
  AccessOptions options;
  options.address = parseAddress(address);
  options.token = token;
  return Access(std::move(options));
}

template <class Action> std::string complaintOf(const Action& action) {
  try {
    action();
  } catch (const AccessError& error) {
    return error.what();
  }
  ADD_FAILURE() << "no error";
  return {};
}

TEST(Address, IsReadWithItsPort) {
  EXPECT_EQ(parseAddress("127.0.0.1:8090").host, "127.0.0.1");
  EXPECT_EQ(parseAddress("127.0.0.1:8090").port, 8090);
  EXPECT_EQ(parseAddress("localhost:1").host, "127.0.0.1");
  EXPECT_EQ(parseAddress("[::1]:0").host, "::1");
}

TEST(Address, WhatIsNoneIsRefused) {
  for (const char* text : {"", "8090", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536",
                           "127.0.0.1:80x", "robot:8090", "[::1:8090", "::1:8090", "1.2.3:4"}) {
    EXPECT_THAT(complaintOf([text] { parseAddress(text); }), HasSubstr("--listen")) << text;
  }
}

TEST(Access, OnlyLoopbackNeedsNoToken) {
  for (const char* address : {"127.0.0.1:8090", "127.8.0.1:8090", "[::1]:8090"}) {
    EXPECT_NO_THROW(openAt(address)) << address;
  }
  for (const char* address : {"0.0.0.0:8090", "192.168.1.5:8090", "[::]:8090", "[fe80::1]:8090"}) {
    EXPECT_THAT(complaintOf([address] { openAt(address); }), HasSubstr("--token-file")) << address;
    EXPECT_NO_THROW(openAt(address, kToken)) << address;
  }
}

TEST(Access, HostsAreOurNamesWithOurPort) {
  const Access sut = openAt("127.0.0.1:8090");
  for (const char* host : {"127.0.0.1:8090", "localhost:8090", "LocalHost:8090", "[::1]:8090"}) {
    EXPECT_TRUE(sut.isHostAllowed(host)) << host;
  }
  for (const char* host :
       {"", "localhost", "localhost:8091", "localhost:", "localhost:8090x", "evil.example:8090",
        "localhost.evil.example:8090", "127.0.0.1.evil.example:8090", "127.0.0.1:8090:8090",
        "::1:8090", "localhost:0x1f9a"}) {
    EXPECT_FALSE(sut.isHostAllowed(host)) << host;
  }
}

TEST(Access, WithoutAPortAHostMeansPort80) {
  EXPECT_TRUE(openAt("127.0.0.1:80").isHostAllowed("localhost"));
  EXPECT_TRUE(openAt("[::1]:80").isHostAllowed("[::1]"));
}

TEST(Access, FurtherHostsAndTheAddressItselfAreAllowed) {
  AccessOptions options;
  options.address = parseAddress("192.168.1.5:8090");
  options.token = kToken;
  options.hosts = {"robot.local"};
  const Access sut(std::move(options));
  EXPECT_TRUE(sut.isHostAllowed("192.168.1.5:8090"));
  EXPECT_TRUE(sut.isHostAllowed("robot.local:8090"));
  EXPECT_FALSE(sut.isHostAllowed("192.168.1.6:8090"));
}

TEST(Access, OriginsAreOurOwnPageAndThoseThatWereNamed) {
  AccessOptions options;
  options.address = parseAddress("127.0.0.1:8090");
  options.origins = {"https://viewer.example"};
  const Access sut(std::move(options));
  EXPECT_TRUE(sut.isOriginAllowed(std::nullopt));
  for (const char* origin :
       {"http://localhost:8090", "http://127.0.0.1:8090", "https://viewer.example"}) {
    EXPECT_TRUE(sut.isOriginAllowed(origin)) << origin;
  }
  for (const char* origin :
       {"", "null", "http://localhost", "http://localhost:8091", "https://localhost:8090",
        "http://evil.example", "https://viewer.example.evil", "https://viewer.example:444"}) {
    EXPECT_FALSE(sut.isOriginAllowed(origin)) << origin;
  }
}

TEST(Access, WithoutATokenEverybodyMayGoOn) {
  EXPECT_TRUE(openAt("127.0.0.1:8090").isAuthorised({}));
}

TEST(Access, ATokenIsAskedForOnEveryAddress) {
  Access sut = openAt("127.0.0.1:8090", kToken);
  Credentials credentials;
  EXPECT_FALSE(sut.isAuthorised(credentials));
  const std::string good = "Bearer " + kToken;
  credentials.authorization = good;
  EXPECT_TRUE(sut.isAuthorised(credentials));
  for (const std::string& bad : std::initializer_list<std::string>{
           "Bearer ", "Bearer x", "Basic " + kToken, kToken, "Bearer " + kToken + "0",
           "Bearer " + kToken.substr(1), "Bearer 1" + kToken.substr(1)}) {
    credentials.authorization = bad;
    EXPECT_FALSE(sut.isAuthorised(credentials)) << bad;
  }
}

TEST(Access, SessionsAreKnownByTheirCookie) {
  Access sut = openAt("127.0.0.1:8090", kToken);
  const std::string session = sut.openSession();
  EXPECT_GE(session.size(), kMinTokenLength);
  EXPECT_NE(session, sut.openSession());
  Credentials credentials;
  const std::string good = "a=b; gk_session=" + session + "; c=d";
  credentials.cookie = good;
  EXPECT_TRUE(sut.isAuthorised(credentials));
  for (const std::string& bad :
       std::initializer_list<std::string>{"gk_session=", "gk_session", "gk_sessions=" + session,
                                          "x=" + session, "gk_session=" + session + "0"}) {
    credentials.cookie = bad;
    EXPECT_FALSE(sut.isAuthorised(credentials)) << bad;
  }
}

TEST(Access, TheOldestSessionEndsWhenThereAreTooMany) {
  Access sut = openAt("127.0.0.1:8090", kToken);
  const std::string oldest = "gk_session=" + sut.openSession();
  Credentials credentials;
  credentials.cookie = oldest;
  for (std::size_t i = 1; i < Access::kMaxSessions; ++i) {
    sut.openSession();
  }
  EXPECT_TRUE(sut.isAuthorised(credentials));
  sut.openSession();
  EXPECT_FALSE(sut.isAuthorised(credentials));
}

TEST(Access, ATicketIsGoodForOnce) {
  Access sut = openAt("127.0.0.1:8090", kToken);
  const std::string ticket = sut.openTicket();
  Credentials credentials;
  credentials.ticket = ticket;
  EXPECT_TRUE(sut.isAuthorised(credentials));
  EXPECT_FALSE(sut.isAuthorised(credentials));
  credentials.ticket = "";
  EXPECT_FALSE(sut.isAuthorised(credentials));
}

TEST(IsSameSecret, ComparesWholeTexts) {
  EXPECT_TRUE(isSameSecret("", ""));
  EXPECT_TRUE(isSameSecret("abc", "abc"));
  for (const auto& [left, right] : std::initializer_list<std::pair<const char*, const char*>>{
           {"abc", "abd"}, {"abc", "xbc"}, {"abc", "ab"}, {"ab", "abc"}, {"", "a"}, {"a", ""}}) {
    EXPECT_FALSE(isSameSecret(left, right)) << left << " " << right;
  }
}

class TokenFile : public testing::Test {
protected:
  std::string write(const std::string& text, mode_t mode = 0600) {
    const std::string path = folder.file("token");
    writeFile(path, text);
    chmod(path.c_str(), mode);
    return path;
  }
  TemporaryFolder folder;
};

TEST_F(TokenFile, HoldsTheTokenInItsFirstLine) {
  EXPECT_EQ(readToken(write(kToken + "\nsecond line\n")), kToken);
  EXPECT_EQ(readToken(write("  " + kToken + " \r\n")), kToken);
  EXPECT_EQ(readToken(write(kToken, 0400)), kToken);
}

TEST_F(TokenFile, HandedOverByAServiceManagerMayBeReadByItsGroup) {
  const gk::test::Environment credentials("CREDENTIALS_DIRECTORY", folder.path().string());
  EXPECT_EQ(readToken(write(kToken, 0440)), kToken);
  for (const mode_t mode : {0444U, 0460U, 0441U}) {
    EXPECT_THAT(complaintOf([&] { readToken(write(kToken, mode)); }), HasSubstr("chmod 600"))
        << mode;
  }
  const gk::test::Environment elsewhere("CREDENTIALS_DIRECTORY", folder.path().string() + "/other");
  EXPECT_THAT(complaintOf([&] { readToken(write(kToken, 0440)); }), HasSubstr("chmod 600"));
}

TEST_F(TokenFile, MustNotBeOpenToOthers) {
  for (const mode_t mode : {0640U, 0604U, 0660U, 0644U, 0610U}) {
    const std::string path = write(kToken, mode);
    EXPECT_THAT(complaintOf([&] { readToken(path); }), HasSubstr("chmod 600")) << mode;
  }
}

TEST_F(TokenFile, MustHold128Bits) {
  EXPECT_NO_THROW(readToken(write(std::string(kMinTokenLength, 'x'))));
  EXPECT_THAT(complaintOf([&] { readToken(write(std::string(kMinTokenLength - 1, 'x'))); }),
              HasSubstr("22 characters"));
  EXPECT_THAT(complaintOf([&] { readToken(write("")); }), HasSubstr("22 characters"));
}

TEST_F(TokenFile, MustBeAFile) {
  EXPECT_THAT(complaintOf([&] { readToken(folder.file("none")); }), HasSubstr("No such file"));
  EXPECT_THAT(complaintOf([&] { readToken(folder.path().string()); }),
              HasSubstr("no regular file"));
}

} // namespace
} // namespace gk::gateway
