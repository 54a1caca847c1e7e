#include "support/Environment.h"
#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <regex>
#include <set>
#include <sys/socket.h>
#include <sys/un.h>

// What `gk run` tells a service manager.

namespace {

using gk::test::Environment;
using gk::test::Program;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::TemporaryFolder;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

/// A service manager that listens.
class Manager {
public:
  Manager() : fSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un own{};
    own.sun_family = AF_UNIX;
    std::strncpy(own.sun_path, address().c_str(), sizeof own.sun_path - 1);
    if (::bind(fSocket, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
      throw std::runtime_error("no socket");
    }
  }
  ~Manager() { ::close(fSocket); }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  std::string address() const { return fFolder.file("notify"); }

  /// What comes next; waits for it.
  std::string next() const {
    std::array<char, 512> text{};
    const ssize_t size = ::recv(fSocket, text.data(), text.size(), 0);
    return {text.data(), static_cast<std::size_t>(size > 0 ? size : 0)};
  }

private:
  const TemporaryFolder fFolder;
  const int fSocket;
};

TEST(Service, TellsThatItIsReadyThatItTicksAndThatItStops) {
  const Manager manager;
  const Environment address("NOTIFY_SOCKET", manager.address());
  const Environment patience("WATCHDOG_USEC", "100000");
  Program sut({GK_PROGRAM, "run", "--robot", "none", "--listen", "127.0.0.1:0"});
  EXPECT_THAT(manager.next(), AllOf(StartsWith("READY=1\nSTATUS="), HasSubstr("listening at")));
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
  kill(sut.pid(), SIGTERM);
  std::string text;
  while ((text = manager.next()) == "WATCHDOG=1") {
  }
  EXPECT_EQ(text, "STOPPING=1");
  EXPECT_EQ(sut.wait().code, 0);
}

TEST(Service, WithoutALoopNobodyIsToldThatItLives) {
  const Manager manager;
  const Environment address("NOTIFY_SOCKET", manager.address());
  const Environment patience("WATCHDOG_USEC", "1000");
  Program sut({GK_PROGRAM, "run", "--robot", "none", "--listen", "127.0.0.1:0", "--library",
               GK_TEST_LIBRARIES "/libListener.so"});
  EXPECT_THAT(manager.next(), StartsWith("READY=1\n"));
  kill(sut.pid(), SIGTERM);
  EXPECT_EQ(manager.next(), "STOPPING=1");
  EXPECT_EQ(sut.wait().code, 0);
}

/// What stands in the group of each match.
std::set<std::string> namesIn(const std::string& text, const std::string& pattern) {
  const std::regex name(pattern, std::regex::multiline);
  std::set<std::string> names;
  for (std::sregex_iterator match(text.begin(), text.end(), name); match != std::sregex_iterator();
       ++match) {
    names.insert((*match)[1]);
  }
  return names;
}

TEST(ServiceOptions, AreThoseOfTheCommandAndAllExplained) {
  std::set<std::string> offered =
      namesIn(runGk({"run", "--help"}).out, "^  (?:-[a-z],)?--([a-z0-9-]+)");
  for (const char* other : {"help", "config", "setting"}) {
    EXPECT_EQ(offered.erase(other), 1U) << other;
  }
  const std::string file = readFile(GK_SOURCE_DIR "/packaging/gk.conf");
  EXPECT_EQ(namesIn(file, "^#?([a-z0-9-]+) = "), offered);
}

TEST(ServiceOptions, AreTakenAsTheyAreInstalled) {
  const auto result = runGk({"run", "--config", GK_SOURCE_DIR "/packaging/gk.conf", "--speed",
                             "max", "--no-listen", "--until", "0.1"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.out, "");
}

} // namespace
