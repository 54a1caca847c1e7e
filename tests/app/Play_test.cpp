#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

// What has just happened, kept; and finished runs, played back.

namespace {

using gk::test::kTouch;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::runGk;
using gk::test::runProgram;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A head that is touched at 1, 2 and 3 s for half a second each, and a run of 5 s.
std::string touches() {
  std::string lines;
  for (int second = 1; second <= 3; ++second) {
    const std::string at = std::to_string(second);
    lines += R"({"t":)" + at + R"(.0,"set":{")" + kTouch + R"(":1.0}})" + "\n";
    lines += R"({"t":)" + at + R"(.5,"set":{")" + kTouch + R"(":0.0}})" + "\n";
  }
  return lines + R"({"t":5.0,"set":{")" + kTouch + R"(":0.0}})" + "\n";
}

/// A number of an answer.
double numberIn(const std::string& answer, const std::string& name) {
  const std::string member = "\"" + name + "\":";
  return std::stod(answer.substr(answer.find(member) + member.size()));
}

double timeOf(const std::string& state) {
  return numberIn(state, "time");
}

/// `gk play` on a free port.
class Playing {
public:
  explicit Playing(const std::vector<std::string>& arguments) : fProgram(withGk(arguments)) {
    const std::string before = "listening at http://";
    std::string text;
    fProgram.runUntil([&] {
      text = fProgram.errSoFar();
      return text.find("Ctrl-C") != std::string::npos;
    });
    const std::size_t place = text.find(before) + before.size();
    fAddress = text.substr(place, text.find('/', place) - place);
  }

  ProgramResult gk(std::vector<std::string> command) const {
    command.insert(command.begin(), GK_PROGRAM);
    command.insert(command.end(), {"--host", fAddress});
    return runProgram(std::move(command));
  }
  /// What a method answers.
  std::string call(const std::string& method, const std::vector<std::string>& words) const {
    std::vector<std::string> command = {"call", "Playback." + method};
    command.insert(command.end(), words.begin(), words.end());
    const ProgramResult result = gk(command);
    EXPECT_EQ(result.code, 0) << result.err;
    return result.out;
  }
  double time() const { return timeOf(call("state", {})); }
  /// Lets it play until the state is so.
  template <class IsSo> std::string waitFor(const IsSo& isSo) const {
    std::string state;
    fProgram.runUntil([&] { return isSo(state = call("state", {})); });
    return state;
  }
  std::string keyOf(const std::string& key) const {
    const ProgramResult result = gk({"get", key, "--json"});
    return result.out.substr(0, result.out.find('\n'));
  }
  /// Asks until the player has got there.
  void waitForKey(const std::string& key, const std::string& part) const {
    fProgram.runUntil([&] { return keyOf(key).find(part) != std::string::npos; });
  }
  const Program& program() const { return fProgram; }
  Program& program() { return fProgram; }
  const std::string& address() const { return fAddress; }

private:
  static std::vector<std::string> withGk(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {GK_PROGRAM, "play", "--listen", "127.0.0.1:0"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }

  Program fProgram;
  std::string fAddress;
};

class Play : public testing::Test {
protected:
  static void SetUpTestSuite() {
    folder.emplace();
    writeFile(folder->path() / "touches.jsonl", touches());
    recording = folder->path() / "touches.mcap";
    const ProgramResult run = runGk({"run", "--speed", "max", "--quiet", "--until", "5", "--record",
                                     recording, folder->path() / "touches.jsonl"});
    ASSERT_EQ(run.code, 0) << run.err;
  }
  static void TearDownTestSuite() { folder.reset(); }

  static std::optional<TemporaryFolder> folder;
  static std::string recording;
};

std::optional<TemporaryFolder> Play::folder;
std::string Play::recording;

TEST_F(Play, PausedItShowsTheKeysAsTheyWere) {
  const Playing sut({"--paused", "--start", "2.25", recording});
  const std::string state = sut.call("state", {});
  EXPECT_EQ(timeOf(state), 2.25);
  EXPECT_EQ(numberIn(state, "begin"), 0);
  EXPECT_EQ(numberIn(state, "end"), 5);
  EXPECT_THAT(state, HasSubstr(R"("playing":false)"));
  EXPECT_THAT(state, HasSubstr(R"("loop":null)"));
  EXPECT_THAT(sut.keyOf(kTouch), HasSubstr("1.0"));
  sut.call("seek", {"2.75"});
  sut.waitForKey(kTouch, "0.0");
  // Back again, to where it was not touched either.
  sut.call("seek", {"1.25"});
  sut.waitForKey(kTouch, "1.0");
  EXPECT_EQ(sut.time(), 1.25);
}

TEST_F(Play, ItPlaysToItsEndAndStaysThere) {
  const Playing sut({"--speed", "max", recording});
  const std::string state = sut.waitFor(
      [](const auto& one) { return one.find(R"("playing":false)") != std::string::npos; });
  // Not a microsecond beyond.
  EXPECT_EQ(timeOf(state), 5);
  EXPECT_EQ(numberIn(state, "speed"), 0);
  // From there it begins anew.
  sut.call("speed", {"1"});
  EXPECT_LT(timeOf(sut.call("play", {})), 1);
}

TEST_F(Play, WhatIsAskedForIsClampedToWhatThereIs) {
  const Playing sut({"--paused", recording});
  EXPECT_EQ(timeOf(sut.call("seek", {"1000"})), 5);
  EXPECT_EQ(timeOf(sut.call("seek", {"-3"})), 0);
  EXPECT_EQ(numberIn(sut.call("speed", {"1e9"}), "speed"), 1000);
  EXPECT_EQ(numberIn(sut.call("speed", {"1e-9"}), "speed"), 0.001);
  const std::string loop = sut.call("loop", {"4", "99"});
  EXPECT_THAT(loop, HasSubstr(R"("loop":[4,5])"));
  EXPECT_THAT(sut.call("loop", {"null"}), HasSubstr(R"("loop":null)"));
}

TEST_F(Play, WrongWishesAreRefusedAndChangeNothing) {
  const Playing sut({"--paused", "--start", "2", recording});
  for (const std::vector<std::string>& wrong :
       std::vector<std::vector<std::string>>{{"seek", "here"},
                                             {"seek"},
                                             {"loop", "3", "3"},
                                             {"loop", "3"},
                                             {"step", "event"},
                                             {"step", "day", "1"},
                                             {"step", "tick", "0.5"}}) {
    std::vector<std::string> command = {"call", "Playback." + wrong[0]};
    command.insert(command.end(), wrong.begin() + 1, wrong.end());
    EXPECT_NE(sut.gk(command).code, 0) << wrong[0];
  }
  EXPECT_EQ(sut.time(), 2);
  EXPECT_THAT(sut.gk({"call", "Playback.sek", "1"}).err, HasSubstr("Playback.seek"));
}

TEST_F(Play, StepsGoFromEventToEventAndFromTickToTick) {
  const Playing sut({"--paused", recording});
  sut.program().runUntil([&] { return timeOf(sut.call("step", {"event", "1"})) >= 1; });
  EXPECT_EQ(sut.time(), 1);
  EXPECT_EQ(timeOf(sut.call("step", {"event", "1"})), 1.5);
  sut.waitForKey("FrontTactilTouched", "0.0");
  EXPECT_EQ(timeOf(sut.call("step", {"tick", "2"})), 1.54);
  EXPECT_EQ(timeOf(sut.call("step", {"tick", "-3"})), 1.48);
  sut.waitForKey("FrontTactilTouched", "1.0");
  EXPECT_EQ(timeOf(sut.call("step", {"event", "-1"})), 1);
}

TEST_F(Play, ALoopBeginsAnewAtItsEnd) {
  const Playing sut({"--paused", "--start", "1.5", "--speed", "20", recording});
  sut.call("loop", {"1", "2"});
  sut.call("play", {});
  // It has been at its end when it is before where it was.
  double last = sut.time();
  sut.waitFor([&](const auto& state) {
    const double now = numberIn(state, "time");
    return std::exchange(last, now) > now;
  });
  const double time = sut.time();
  EXPECT_GE(time, 1);
  EXPECT_LE(time, 2);
}

TEST_F(Play, AllOtherCallsAndWritesAreRefusedWithTheReason) {
  const Playing sut({"--paused", recording});
  const ProgramResult set = sut.gk({"set", kTouch, "1"});
  EXPECT_EQ(set.code, 1);
  EXPECT_THAT(set.err, HasSubstr("a recording is played"));
  EXPECT_THAT(sut.gk({"call", "GKMemory.insertData", "x", "1"}).err,
              HasSubstr("a recording is played"));
  EXPECT_THAT(sut.gk({"call", "GKBattery.getBatteryCharge"}).err,
              HasSubstr("a recording is played"));
  EXPECT_THAT(sut.gk({"keep", folder->path() / "no.mcap"}).err, HasSubstr("a recording is played"));
  EXPECT_FALSE(std::filesystem::exists(folder->path() / "no.mcap"));
}

TEST_F(Play, EventsComeAsTheClockPassesThem) {
  const Playing sut({"--paused", recording});
  Program events(
      {GK_PROGRAM, "events", "--json", "--count", "2", "FrontTactil", "--host", sut.address()});
  sut.waitFor([&](const auto&) {
    return sut.gk({"top", "--json"}).out.find(R"("webSocketClients":1)") != std::string::npos;
  });
  sut.call("seek", {"1.9"});
  sut.call("play", {});
  EXPECT_EQ(events.wait().code, 0);
  const std::string told = events.outSoFar();
  // What lies before the place where it went is not told again.
  EXPECT_THAT(told, StartsWith(R"({"name":"FrontTactilTouched","t_s":2,)"));
  EXPECT_THAT(told, HasSubstr(R"("t_s":2.5,)"));
}

TEST_F(Play, WhatIsNoRecordingIsRunFirst) {
  const Playing sut({"--paused", "--start", "1.25", folder->path() / "touches.jsonl"});
  sut.waitForKey("FrontTactilTouched", "1.0");
  // A run of input ends with the tick behind it.
  EXPECT_EQ(numberIn(sut.call("state", {}), "end"), 5.02);
}

TEST_F(Play, BadInputIsOneLineAndNothingIsServed) {
  writeFile(folder->path() / "broken.mcap", "no recording");
  const ProgramResult broken = runGk({"play", folder->path() / "broken.mcap"});
  EXPECT_EQ(broken.code, 2);
  EXPECT_THAT(broken.err, HasSubstr("broken.mcap"));
  EXPECT_THAT(broken.err, Not(HasSubstr("listening")));
  EXPECT_EQ(runGk({"play", folder->path() / "absent.mcap"}).code, 2);
  EXPECT_EQ(runGk({"play", "--speed", "0", recording}).code, 2);
}

TEST_F(Play, ASignalEndsIt) {
  Playing sut({recording});
  kill(sut.program().pid(), SIGTERM);
  EXPECT_EQ(sut.program().wait().code, 0);
}

/// What a host did in its last seconds, kept, is a recording.
TEST_F(Play, WhatHasJustHappenedIsKeptAndReplays) {
  Program host({GK_PROGRAM, "run", "--robot", "none", "--listen", "127.0.0.1:0"});
  std::string address;
  host.runUntil([&] {
    const std::string text = host.errSoFar();
    const std::string before = "listening at http://";
    const std::size_t place = text.find(before);
    if (place == std::string::npos ||
        text.find("/\n", place + before.size()) == std::string::npos) {
      return false;
    }
    address = text.substr(place + before.size(),
                          text.find('/', place + before.size()) - place - before.size());
    return true;
  });
  const auto ask = [&](std::vector<std::string> command) {
    command.insert(command.begin(), GK_PROGRAM);
    command.insert(command.end(), {"--host", address});
    return runProgram(std::move(command));
  };
  ASSERT_EQ(ask({"set", kTouch, "1"}).code, 0);
  host.runUntil([&] {
    return ask({"get", "FrontTactilTouched", "--json"}).out.find("1.0") != std::string::npos;
  });
  const std::string file = folder->path() / "kept.mcap";
  const ProgramResult keep = ask({"keep", file, "--json"});
  ASSERT_EQ(keep.code, 0) << keep.err;
  // How many is a matter of when ticks came; the touch is one that is repeated.
  EXPECT_THAT(keep.out, HasSubstr(R"("notRepeated":)"));
  const ProgramResult replay = runGk({"replay", "--out", "-", "--only", "event", file});
  EXPECT_THAT(replay.out, HasSubstr(R"("name":"FrontTactilTouched","value":1.0)"));
  EXPECT_EQ(runGk({"recording", "verify", file}).code, 0);
  // A file that is there stays.
  EXPECT_EQ(ask({"keep", "5", file}).code, 1);
  EXPECT_EQ(ask({"keep", "5", file, "--overwrite"}).code, 0);
  EXPECT_EQ(ask({"keep", "nothing", file}).code, 2);
  EXPECT_EQ(ask({"keep", "no.csv"}).code, 2);
  // It can be played as well.
  const Playing sut({"--paused", "--start", "1000", file});
  sut.waitForKey("FrontTactilTouched", "1.0");
}

} // namespace
