#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

// Runs whose time moves on request: gk run --lockstep.

namespace {

using gk::test::become;
using gk::test::exitCode;
using gk::test::kData;
using gk::test::kTouch;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::runProgram;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

std::vector<std::string> textLinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

std::string request(const std::string& id, const std::string& method, const std::string& params) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"method":")" + method + R"(","params":)" + params +
         "}\n";
}

std::string result(const std::string& id, const std::string& value) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":)" + value + "}";
}

class LockstepTest : public testing::Test {
protected:
  /// What a run says to these requests.
  ProgramResult ask(const std::string& requests,
                    const std::vector<std::string>& options = {"--robot", "none"}) const {
    writeFile(file("in"), requests);
    std::string line = "exec " GK_PROGRAM " run --lockstep";
    for (const std::string& option : options) {
      line += " '" + option + "'";
    }
    return runProgram({"/bin/sh", "-c", line + " < " + file("in")});
  }

  std::string file(const std::string& name) const { return fFolder.file(name); }

  const TemporaryFolder fFolder;
};

TEST_F(LockstepTest, EndsWithItsInputWithoutAWordOnStandardOutput) {
  const ProgramResult run = ask("");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.out, IsEmpty());
}

TEST_F(LockstepTest, TimeZeroHasHappenedBeforeTheFirstAnswer) {
  const ProgramResult run =
      ask(request("1", "Memory.get", R"([["BatteryChargeChanged","no such key"]])") +
          request("2", "Clock.advance", "[0]"));
  const std::vector<std::string> lines = textLinesOf(run.out);
  ASSERT_EQ(lines.size(), 2U) << run.out << run.err;
  EXPECT_EQ(lines[0], result("1", R"({"BatteryChargeChanged":100})"));
  EXPECT_THAT(lines[1], StartsWith(R"({"jsonrpc":"2.0","id":2,"result":{"time":0,"events":[)"));
  EXPECT_THAT(lines[1], HasSubstr(R"({"t":0,"kind":"event","name":"robotPoseChanged","value":)"));
}

TEST_F(LockstepTest, WhatIsWrittenIsNoticedInTheNextTickAndToldByTheAdvanceInWhichThatIs) {
  const ProgramResult run = ask(request("1", "Clock.advance", "[0.01]") +
                                request("2", "Memory.set", "[{\"" + kTouch + "\":1}]") +
                                request("3", "Memory.get", "[[\"" + kTouch + "\"]]") +
                                request("4", "Clock.advance", "[0]") +
                                request("5", "Clock.advance", R"({"seconds":0.01})") +
                                request("6", "Clock.advance", "[0.1]"));
  const std::vector<std::string> lines = textLinesOf(run.out);
  ASSERT_EQ(lines.size(), 6U) << run.out << run.err;
  EXPECT_EQ(lines[1], result("2", "null"));
  EXPECT_EQ(lines[2], result("3", "{\"" + kTouch + "\":1.0}"));
  EXPECT_EQ(lines[3], result("4", R"({"time":0.01,"events":[]})"));
  EXPECT_EQ(lines[4], result("5", R"({"time":0.02,"events":[{"t":0.02,"kind":"event",)"
                                  R"("name":"FrontTactilTouched","value":1.0}]})"));
  EXPECT_EQ(lines[5], result("6", R"({"time":0.12,"events":[]})"));
}

TEST_F(LockstepTest, ACallIsMadeAtTheTimeThatWasAskedForWhetherAnythingHappensThenOrNot) {
  const ProgramResult run = ask(request("1", "Clock.advance", "[0.0134567]") +
                                request("2", "GKMemory.raiseEvent", R"(["Mine",1])") +
                                request("3", "Clock.advance", "[0]"));
  EXPECT_THAT(run.out, HasSubstr(R"({"time":0.013457,"events":[{"t":0.013457,"kind":"event",)"
                                 R"("name":"Mine","value":1}]})"));
}

TEST_F(LockstepTest, ACallThatSleepsIsAnsweredInTheAdvanceInWhichItReturns) {
  const ProgramResult run = ask(
      request("1", "GKSonar.subscribe", R"(["me"])") +
      request("2", "GKBattery.getBatteryCharge", "[]") + request("3", "Clock.advance", "[0.9]") +
      request("4", "Clock.advance", "[0.9]") + request("5", "GKSonar.unsubscribe", R"(["me"])"));
  std::vector<std::string> ids;
  for (const std::string& line : textLinesOf(run.out)) {
    ids.push_back(line.substr(0, line.find(",\"result")));
  }
  EXPECT_THAT(ids, ElementsAre(R"({"jsonrpc":"2.0","id":2)", R"({"jsonrpc":"2.0","id":3)",
                               R"({"jsonrpc":"2.0","id":1)", R"({"jsonrpc":"2.0","id":4)",
                               R"({"jsonrpc":"2.0","id":5)"));
  EXPECT_EQ(run.code, 0) << run.err; // the last call has not returned by the end
}

TEST_F(LockstepTest, RequestsOfABatchComeOneAfterTheOther) {
  std::string batch = "[" + request("1", "Memory.set", "[{\"" + kTouch + "\":1}]") + "," +
                      request("2", "Clock.advance", "[0.02]") + "," +
                      request("3", "Memory.get", R"([["FrontTactilTouched"]])") + "," +
                      request("4", "GKBattery.getBatteryCharge", "[]") + "]";
  std::erase(batch, '\n');
  const ProgramResult run = ask(batch + "\n");
  const std::vector<std::string> lines = textLinesOf(run.out);
  ASSERT_EQ(lines.size(), 1U) << run.out << run.err;
  EXPECT_THAT(lines[0], StartsWith("[" + result("1", "null") + ","));
  EXPECT_THAT(lines[0], EndsWith(result("3", R"({"FrontTactilTouched":1.0})") + "," +
                                 result("4", "100") + "]"));
}

TEST_F(LockstepTest, WhatIsNoRequestIsAnsweredByAnErrorAndNothingElseHappens) {
  const auto codeOf = [this](const std::string& line) {
    const ProgramResult run = ask(line + "\n" + request("9", "Clock.advance", "[0]"));
    const std::vector<std::string> lines = textLinesOf(run.out);
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(lines.size(), 2U) << run.out;
    const std::string& answer = lines.at(0);
    const std::size_t place = answer.find("\"code\":");
    return place == std::string::npos ? answer : answer.substr(place + 7, 6);
  };
  EXPECT_EQ(codeOf("garbage"), "-32700");
  EXPECT_EQ(codeOf("\x01\xff"), "-32700");
  EXPECT_EQ(codeOf("[]"), "-32600");
  EXPECT_EQ(codeOf("{}"), "-32600");
  EXPECT_EQ(codeOf(std::string(2'000'000, 'x')), "-32600");
  EXPECT_EQ(codeOf(request("1", "Clock.stop", "[]")).substr(0, 6), "-32601");
}

TEST_F(LockstepTest, WrongParametersOfTheHostsMethodsAreToldAndChangeNothing) {
  const ProgramResult run =
      ask(request("1", "Clock.advance", "[-0.1]") + request("2", "Clock.advance", "[]") +
          request("3", "Clock.advance", R"(["1"])") + request("4", "Clock.advance", "[1e300]") +
          request("5", "Clock.advance", "[\"nan\"]") + request("6", "Clock.advance", "[1, 2]") +
          request("7", "Memory.get", "[\"x\"]") + request("8", "Memory.set", "[[1]]") +
          request("9", "Memory.set", "[{\"mine\":1,\"" + kTouch + "\":\"word\"}]") +
          request("10", "Memory.get", R"([["mine"]])") +
          request("11", "GKBatery.getBatteryCharge", "[]"));
  const std::vector<std::string> lines = textLinesOf(run.out);
  ASSERT_EQ(lines.size(), 11U) << run.out;
  for (const std::size_t i : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U}) {
    EXPECT_THAT(lines[i], HasSubstr(R"("error":{"code":-32602)")) << i;
  }
  EXPECT_THAT(lines[8], HasSubstr(kTouch));
  EXPECT_EQ(lines[9], result("10", "{}"));
  EXPECT_THAT(lines[10], HasSubstr("did you mean GKBattery?"));
}

TEST_F(LockstepTest, NotificationsAndBlankLinesGetNoAnswerAndTheLastLineNeedsNoEnd) {
  const ProgramResult run =
      ask("\n  \n{\"jsonrpc\":\"2.0\",\"method\":\"Clock.advance\",\"params\":"
          "[1]}\n{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"Clock.advance\","
          "\"params\":[1]}");
  ASSERT_EQ(textLinesOf(run.out).size(), 1U) << run.out;
  EXPECT_THAT(run.out, StartsWith(R"({"jsonrpc":"2.0","id":1,"result":{"time":2,)"));
}

TEST_F(LockstepTest, FilesArePlayedAsTimeMoves) {
  writeFile(file("in.jsonl"), R"({"t": 1, "set": {")" + kTouch +
                                  R"(": 1.0}})"
                                  "\n");
  const ProgramResult run =
      ask(request("1", "Clock.advance", "[0.98]") + request("2", "Clock.advance", "[0.02]"),
          {file("in.jsonl"), "--out", file("out.jsonl"), "--only", "event"});
  const std::vector<std::string> lines = textLinesOf(run.out);
  ASSERT_EQ(lines.size(), 2U) << run.out << run.err;
  EXPECT_THAT(lines[0], Not(HasSubstr("FrontTactilTouched\",\"value\":1.0")));
  EXPECT_EQ(lines[1], result("2", R"({"time":1,"events":[{"t":1,"kind":"event",)"
                                  R"("name":"FrontTactilTouched","value":1.0}]})"));
  EXPECT_THAT(
      readFile(file("out.jsonl")),
      EndsWith("{\"t\":1,\"kind\":\"event\",\"name\":\"FrontTactilTouched\",\"value\":1.0}\n"));
}

TEST_F(LockstepTest, AScenariosExitEndsTheRunWithALastAnswer) {
  writeFile(file("in.jsonl"), "{\"t\": 0.5, \"exit\": true}\n");
  const ProgramResult run =
      ask(request("1", "Clock.advance", "[2]") + request("2", "Clock.advance", "[1]"),
          {file("in.jsonl")});
  EXPECT_EQ(run.code, 0) << run.err;
  ASSERT_EQ(textLinesOf(run.out).size(), 1U) << run.out;
  EXPECT_THAT(run.out, StartsWith(R"({"jsonrpc":"2.0","id":1,"result":{"time":0.5,)"));
}

TEST_F(LockstepTest, TheSimulatedRobotStandsAndStepsAreOneLongRun) {
  std::string steps;
  for (int i = 0; i < 100; ++i) {
    steps += request("1", "Clock.advance", "[0.02]");
  }
  const std::string last = request("2", "Memory.get",
                                   "[[\"robotPose\",\"Device/SubDeviceList/Battery/Charge/Sensor/"
                                   "Value\",\"Device/SubDeviceList/InertialSensor/AngleX/Sensor/"
                                   "Value\"]]");
  const ProgramResult many = ask(steps + last, {});
  const ProgramResult one = ask(request("1", "Clock.advance", "[2]") + last, {});
  EXPECT_THAT(one.out, HasSubstr(R"("robotPose":1.0)")) << one.err;
  EXPECT_EQ(textLinesOf(many.out).back(), textLinesOf(one.out).back());
}

TEST_F(LockstepTest, ARecordingOfItIsRepeatedToTheByte) {
  std::string requests;
  for (int i = 0; i < 20; ++i) {
    requests += request("1", "Memory.set", "[{\"" + kTouch + "\":" + std::to_string(i % 2) + "}]");
    requests += request("2", "GKMemory.raiseEvent", "[\"Mine\"," + std::to_string(i) + "]");
    requests += request("3", "Clock.advance", "[0.0137]");
  }
  requests += request("4", "GKSonar.subscribe", R"(["me"])") + request("5", "Clock.advance", "[2]");
  const ProgramResult run = ask(requests, {"--robot", "none", "--record", file("run.mcap"), "--out",
                                           file("run.jsonl"), "--only", "event,micro,order,log"});
  ASSERT_EQ(run.code, 0) << run.err;
  const ProgramResult replay = runGk({"replay", file("run.mcap"), "--out", file("replay.jsonl"),
                                      "--only", "event,micro,order,log"});
  ASSERT_EQ(replay.code, 0) << replay.err;
  EXPECT_EQ(readFile(file("replay.jsonl")), readFile(file("run.jsonl")));
  EXPECT_THAT(readFile(file("run.jsonl")), HasSubstr(R"("name":"FrontTactilTouched","value":1.0)"));
}

TEST_F(LockstepTest, WhatModulesPrintAndLogGoesToStandardError) {
  const ProgramResult run = ask(request("1", "Clock.advance", "[0]"),
                                {"--robot", "none", "--library", "/no/such/library.so"});
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.out, IsEmpty());
  EXPECT_THAT(run.err, HasSubstr("/no/such/library.so"));
}

TEST_F(LockstepTest, OptionsThatSayOtherwiseAreRefused) {
  EXPECT_EQ(ask("", {"--out", "-"}).code, 2);
  EXPECT_EQ(ask("", {"--speed", "max"}).code, 2);
  EXPECT_EQ(ask("", {"--until", "1"}).code, 2);
}

/// A run with a pipe in each direction.
class Piped {
public:
  explicit Piped(const std::vector<std::string>& options = {"--quiet"}) {
    if (pipe(fIn) != 0 || pipe(fOut) != 0) {
      throw std::runtime_error("no pipe");
    }
    fPid = fork();
    if (fPid == 0) {
      dup2(fIn[0], STDIN_FILENO);
      dup2(fOut[1], STDOUT_FILENO);
      for (const int end : {fIn[0], fIn[1], fOut[0], fOut[1]}) {
        close(end);
      }
      const int errors = open(fErrors.file("err").c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
      dup2(errors, STDERR_FILENO);
      std::vector<std::string> arguments = {GK_PROGRAM, "run", "--lockstep", "--robot", "none"};
      arguments.insert(arguments.end(), options.begin(), options.end());
      become(arguments);
    }
    close(fIn[0]);
    close(fOut[1]);
  }
  ~Piped() {
    closeInput();
    closeOutput();
    if (fPid > 0) {
      kill(fPid, SIGKILL);
      waitpid(fPid, nullptr, 0);
    }
  }
  Piped(const Piped&) = delete;
  Piped& operator=(const Piped&) = delete;

  void say(const std::string& text) const {
    ASSERT_EQ(write(fIn[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  /// The next line of an answer.
  std::string hear() const {
    std::string line;
    char c = 0;
    while (read(fOut[0], &c, 1) == 1 && c != '\n') {
      line += c;
    }
    return line;
  }
  void closeInput() { close(std::exchange(fIn[1], -1)); }
  void closeOutput() { close(std::exchange(fOut[0], -1)); }
  pid_t pid() const { return fPid; }
  std::string errSoFar() const { return readFile(fErrors.file("err")); }
  int wait() {
    int status = 0;
    waitpid(std::exchange(fPid, -1), &status, 0);
    return exitCode(status);
  }

private:
  TemporaryFolder fErrors;
  int fIn[2]{};
  int fOut[2]{};
  pid_t fPid = -1;
};

TEST(LockstepPipes, EachAnswerComesBeforeTheNextRequest) {
  Piped sut;
  for (int i = 1; i <= 50; ++i) {
    sut.say(request(std::to_string(i), "Clock.advance", "[0.02]"));
    EXPECT_THAT(sut.hear(), StartsWith(R"({"jsonrpc":"2.0","id":)" + std::to_string(i) + ","));
  }
  sut.closeInput();
  EXPECT_EQ(sut.wait(), 0);
}

TEST(LockstepPipes, AReaderThatGoesAwayEndsTheRun) {
  Piped sut;
  sut.say(request("1", "Clock.advance", "[0.02]"));
  sut.hear();
  sut.closeOutput();
  sut.say(request("2", "Clock.advance", "[0.02]"));
  EXPECT_EQ(sut.wait(), 1);
}

TEST(LockstepPipes, ASignalEndsItInOrder) {
  Piped sut;
  sut.say(request("1", "Clock.advance", "[0.02]"));
  sut.hear();
  kill(sut.pid(), SIGTERM);
  EXPECT_EQ(sut.wait(), 0);
}

TEST(LockstepPipes, ASignalEndsItAlsoWhenNobodyReadsItsAnswers) {
  Piped sut;
  sut.say(request("1", "Clock.advance", "[0]"));
  sut.hear();
  std::string many;
  for (int i = 0; i < 800; ++i) {
    many += request("1", "Memory.get", R"([["robotPose"]])");
  }
  // 64 kB of a pipe are not enough for these answers.
  many.resize(60'000);
  sut.say(many);
  kill(sut.pid(), SIGTERM);
  EXPECT_THAT(sut.wait(), testing::AnyOf(0, 1));
}

TEST(LockstepPipes, ClientsOfItsAddressAreServedBetweenTheSteps) {
  Piped sut({"--listen", "127.0.0.1:0"});
  sut.say(request("1", "Clock.advance", "[0.02]"));
  sut.hear();
  const std::string before = "listening at http://";
  const std::string said = sut.errSoFar();
  const std::size_t place = said.find(before);
  ASSERT_NE(place, std::string::npos) << said;
  const std::size_t begin = place + before.size();
  const std::string address = said.substr(begin, said.find('/', begin) - begin);
  const auto ask = [&address](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--host", address});
    return runGk(std::move(arguments));
  };
  EXPECT_EQ(ask({"call", "GKBattery.getBatteryCharge"}).out, "100\n");
  EXPECT_EQ(ask({"set", kTouch, "1"}).code, 0);
  EXPECT_EQ(ask({"set", kTouch, "word"}).code, 1);
  sut.say(request("2", "Clock.advance", "[0.02]"));
  EXPECT_EQ(sut.hear(), result("2", R"({"time":0.04,"events":[{"t":0.04,"kind":"event",)"
                                    R"("name":"FrontTactilTouched","value":1.0}]})"));
  EXPECT_THAT(ask({"get", "FrontTactilTouched", "--json"}).out, HasSubstr("1.0"));
  sut.closeInput();
  EXPECT_EQ(sut.wait(), 0);
}

TEST(LockstepClients, AFewLinesOfShellAreAClient) {
  const ProgramResult shell = runProgram(
      {"/bin/bash", "-c",
       "coproc robot { exec " GK_PROGRAM " run --lockstep --robot none --quiet 2>/dev/null; }\n"
       "ask() { echo \"$1\" >&\"${robot[1]}\"; read -r answer <&\"${robot[0]}\"; echo \"$answer\"; "
       "}\n"
       "ask '{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"Clock.advance\",\"params\":[0.02]}' "
       ">/dev/null\n"
       "ask '{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"GKBattery.getBatteryCharge\"}'\n"});
  EXPECT_EQ(shell.code, 0) << shell.err;
  EXPECT_EQ(shell.out, result("2", "100") + "\n");
}

TEST(LockstepClients, AFewLinesOfPythonAreAClient) {
  if (!std::filesystem::exists("/usr/bin/python3")) {
    GTEST_SKIP() << "no /usr/bin/python3";
  }
  const TemporaryFolder folder;
  writeFile(folder.path() / "client.py", R"(
import json, subprocess, sys
robot = subprocess.Popen([sys.argv[1], "run", "--lockstep", "--robot", "none", "--quiet"],
                         stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)
def ask(method, *params):
    robot.stdin.write(json.dumps({"jsonrpc": "2.0", "id": 1, "method": method, "params": params}) + "\n")
    return json.loads(robot.stdout.readline())["result"]
key = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value"
ask("Clock.advance", 0.02)
ask("Memory.set", {key: 1.0})
print(ask("Clock.advance", 0.02))
robot.stdin.close()
print(robot.wait())
)");
  const ProgramResult python =
      runProgram({"/usr/bin/python3", folder.file("client.py"), GK_PROGRAM});
  EXPECT_EQ(python.out, "{'time': 0.04, 'events': [{'t': 0.04, 'kind': 'event', 'name': "
                        "'FrontTactilTouched', 'value': 1.0}]}\n0\n")
      << python.err;
}

} // namespace
