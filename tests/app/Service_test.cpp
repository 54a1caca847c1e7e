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
using gk::test::runProgram;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
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

/// What `gk` writes on a standard error that the environment calls the journal.
std::string inTheJournal(const std::string& arguments, const std::string& stream) {
  const TemporaryFolder folder;
  const std::string file = folder.file("journal");
  writeFile(file, "");
  runProgram(
      {"/bin/sh", "-c",
       "JOURNAL_STREAM=" + stream + " exec " GK_PROGRAM " " + arguments + " >/dev/null 2>>\"$0\"",
       file});
  return readFile(file);
}

constexpr const char* kThisOne = "$(stat -c %d:%i \"$0\")";
constexpr const char* kWithAWarning =
    "replay " GK_SOURCE_DIR
    "/tests/scenarios/extractor/unsubscribing_an_unknown_name_warns_and_fails.jsonl";

TEST(Journal, EachComplaintTellsHowGraveItIs) {
  EXPECT_THAT(inTheJournal("run --nosuch", kThisOne), StartsWith("<3>gk: "));
  EXPECT_THAT(inTheJournal("replay /nosuch.csv", kThisOne), StartsWith("<3>/nosuch.csv: "));
  EXPECT_THAT(inTheJournal("run --library /nosuch.so --speed max --until 1", kThisOne),
              StartsWith("<3>gk: "));
}

TEST(Journal, TheLogHasLevelsAndNoTimes) {
  const std::string warning =
      "<4>core.extractor: GKSonar received unsubscribe from non-subscribed module X\n";
  EXPECT_THAT(inTheJournal(kWithAWarning, kThisOne), StartsWith(warning));
  EXPECT_THAT(inTheJournal(std::string(kWithAWarning) + " --quiet", kThisOne), StartsWith(warning));
  EXPECT_THAT(inTheJournal(std::string(kWithAWarning) + " --log-level 5", kThisOne),
              StartsWith("<7>motion.sonar: GKSonar No DCM. Working in simulation mode.\n"));
  EXPECT_THAT(inTheJournal(std::string(kWithAWarning) + " --quiet --log-level 5", kThisOne),
              Not(HasSubstr("motion.sonar")));
}

TEST(Journal, ElsewhereNothingIsPutBeforeALine) {
  EXPECT_THAT(inTheJournal("replay /nosuch.csv", "1:1"), StartsWith("/nosuch.csv: "));
  EXPECT_THAT(inTheJournal(kWithAWarning, "1:1"), Not(HasSubstr("received unsubscribe")));
}

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
