#include "support/CannedHost.h"
#include "support/Gk.h"
#include "support/RunningHost.h"
#include "support/Terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <string>
#include <vector>

// What people see on their terminals: narrow ones, wide ones, and such as change.

namespace {

using gk::test::CannedHost;
using gk::test::ProgramResult;
using gk::test::runGk;
using gk::test::RunningHost;
using gk::test::TemporaryFolder;
using gk::test::TerminalProgram;
using gk::test::writeFile;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

/// The longest keys among them have 55 characters.
const std::vector<std::string> kKeys = {"Motion/IsStand",
                                        "Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value",
                                        "Device/SubDeviceList/RFoot/FSR/TotalWeight/Sensor/Value"};
const std::string kNumber = "Mine/Number";

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
    ++count;
  }
  return count;
}

std::vector<std::string> watchOn(const RunningHost& host) {
  std::vector<std::string> command = {GK_PROGRAM, "watch"};
  command.insert(command.end(), kKeys.begin(), kKeys.end());
  command.insert(command.end(), {kNumber, "--host", host.address()});
  return command;
}

/// A host with a loop that is late and slow, and with a client that has lost something.
std::string troubledHost(const std::string& more = "") {
  return R"({"name":"gksensors","version":"0.0.1","t_s":754.5,"time_s":0,"startTime_s":0,"modules":1,)"
         R"("loops":[{"module":"GKSensors","ticks":100,"age_s":0.012,"overruns":0,)"
         R"("duration":{"count":9,"mean_s":0.0003,"p50_s":0.0003,"p99_s":0.0005,"p999_s":0.0006},)"
         R"("lateness":{"count":9,"mean_s":0.0001,"p50_s":0.0001,"p99_s":0.0002,"p999_s":0.0003})" +
         more +
         R"(}],"events":12,"memoryKeys":176,"deviceKeys":{"count":176,"age_s":0.5},)"
         R"("connections":1,"webSocketClients":1,"callsRunning":0,)"
         R"("dropped":{"samples":70000,"events":3},)"
         R"("clients":[{"name":"127.0.0.1:40000 viewer","lostSamples":70000,"lostEvents":3}]})";
}

const std::string kLateMinute =
    R"(,"lastMinute":{"rate_hz":39.9,"askedRate_hz":50,"overruns":2,)"
    R"("duration":{"count":9,"mean_s":0.0003,"p50_s":0.0003,"p99_s":0.0005,"p999_s":0.0006},)"
    R"("lateness":{"count":9,"mean_s":0.0001,"p50_s":0.0001,"p99_s":0.0002,"p999_s":0.005341}})";

CannedHost cannedHost(const std::string& host) {
  return CannedHost({{"/livez", "ok\n"},
                     {"/readyz?verbose", "[+] modules are loaded\nok\n"},
                     {"/api/v1/host?verbose", host},
                     {"/api/v1/modules", R"({"modules":[{"name":"GKSensors"}]})"},
                     {"/api/v1/modules/GKSensors", "{}"}});
}

class OnTerminals : public testing::TestWithParam<unsigned short> {};
INSTANTIATE_TEST_SUITE_P(OfSoManyColumns, OnTerminals, testing::Values(60, 80, 200));

TEST_P(OnTerminals, WatchDrawsOverWhatItDrewHoweverTheSizeChanges) {
  const RunningHost host;
  host.gk({"set", kNumber, "0"});
  TerminalProgram sut(watchOn(host), GetParam(), 24);
  const auto shows = [&sut](const std::string& what) {
    return sut.screen().text().find(what) != std::string::npos;
  };
  int number = 0;
  for (const unsigned short columns : {GetParam(), static_cast<unsigned short>(40),
                                       static_cast<unsigned short>(100), GetParam()}) {
    sut.resize(columns, 24);
    for (int i = 0; i < 3; ++i) {
      host.gk({"set", kNumber, std::to_string(++number)});
      sut.runUntil([&] { return shows(" " + std::to_string(number) + "\n"); });
    }
    const std::string text = sut.screen().text();
    EXPECT_EQ(countOf(text, "KEY"), 1U) << text;
    EXPECT_EQ(countOf(text, "Number"), 1U) << text;
    EXPECT_EQ(countOf(text, "LFoot/FSR/TotalWeight"), 1U) << text;
    EXPECT_EQ(countOf(text, "RFoot/FSR/TotalWeight"), 1U) << text;
    EXPECT_THAT(sut.screen().lines(), SizeIs(kKeys.size() + 2));
  }
}

TEST(GkTerminal, WatchFollowsTheSizeAlsoWhenNothingChanges) {
  const RunningHost host;
  host.gk({"set", kNumber, "0"});
  TerminalProgram sut(watchOn(host), 100, 24);
  sut.runUntil([&sut] { return sut.screen().lines().size() == kKeys.size() + 2; });
  EXPECT_THAT(sut.screen().text(), HasSubstr("\n" + kKeys[1] + " "));
  sut.resize(50, 24);
  sut.runUntil([&sut] { return sut.screen().text().find("…") != std::string::npos; });
  sut.resize(100, 4);
  sut.runUntil([&sut] { return sut.screen().text().find("… 3 more") != std::string::npos; });
  EXPECT_THAT(sut.screen().lines(), SizeIs(3));
}

TEST_P(OnTerminals, TopFitsAndEndsWithAKey) {
  const RunningHost host({"--no-tour"});
  TerminalProgram sut({GK_PROGRAM, "top", "--interval", "0.1", "--host", host.address()},
                      GetParam(), 40);
  sut.runUntil([&sut] { return sut.screen().text().find("ticks ") != std::string::npos; });
  const std::string text = sut.screen().text();
  EXPECT_EQ(countOf(text, "MODULE"), 1U) << text;
  // Nothing has to be cut from 80 columns on.
  EXPECT_EQ(text.find("…") != std::string::npos, GetParam() < 80) << text;
  EXPECT_FALSE(sut.isPlain());
  sut.press("q");
  EXPECT_EQ(sut.wait(), 0);
  EXPECT_TRUE(sut.isPlain());
}

TEST(GkTerminal, TopLeavesThePlainTerminalBehindWhenASignalEndsIt) {
  const CannedHost host = cannedHost(troubledHost());
  TerminalProgram sut({GK_PROGRAM, "top", "--interval", "0.1", "--host", host.address()}, 80, 24);
  sut.runUntil([&sut] { return sut.screen().text().find("MODULE") != std::string::npos; });
  kill(sut.pid(), SIGINT);
  sut.runUntil([&sut] { return sut.isPlain(); });
  EXPECT_EQ(sut.wait(), 128 + SIGINT);
}

TEST(GkTerminal, TopMarksWhatIsBeyondItsLimitAndWhoHasLostEvents) {
  const CannedHost host = cannedHost(troubledHost(kLateMinute));
  const ProgramResult top = runGk({"top", "--interval", "0.1", "--host", host.address()});
  EXPECT_EQ(top.code, 0) << top.err;
  EXPECT_THAT(top.out, AllOf(HasSubstr(" 5.34!"), HasSubstr(" 0.0!"), HasSubstr(" 2!\n"),
                             HasSubstr("70000         3!      127.0.0.1:40000 viewer\n")));
  TerminalProgram sut({GK_PROGRAM, "top", "--interval", "0.1", "--host", host.address()}, 80, 24);
  sut.runUntil([&] { return sut.written().find("\x1b[1;31m5.34!\x1b[0m") != std::string::npos; });
}

TEST(GkDoctor, SaysFirstWhatItComesToAndThenTheWorstWithLimitAndAdvice) {
  const CannedHost host = cannedHost(troubledHost(kLateMinute));
  const ProgramResult all = runGk({"doctor", "--host", host.address()});
  EXPECT_EQ(all.code, 1);
  const std::vector<std::string> expected = {
      "not well at " + host.address() + ": 5 of 11 checks failed, the worst first\n",
      "NO  GKSensors is on time: 99.9 % of its ticks in the last minute at most 5.34 ms late "
      "(limit 5 ms). The machine is too busy",
      "NO  GKSensors keeps its rate: 39.9 of 50.0 ticks a second in the last minute (limit 80 %). ",
      "NO  no client has lost events: 3 lost since the start (limit 0). A client reads too slowly",
      "NO  versions agree: host 0.0.1, ",
      "NO  clocks agree: ",
      "ok  the host is up: ",
      "ok  device keys are fresh: last change 500 ms ago (limit 5 s)\n",
      "ok  GKSensors ticks: last tick 12 ms ago (limit 1 s)\n"};
  std::size_t place = 0;
  for (const std::string& line : expected) {
    const std::size_t found = all.out.find(line, place);
    ASSERT_NE(found, std::string::npos) << line << "\n" << all.out;
    place = found + line.size();
  }
  const ProgramResult failed = runGk({"doctor", "--failed", "--host", host.address()});
  EXPECT_EQ(failed.code, 1);
  EXPECT_EQ(failed.out, all.out.substr(0, all.out.find("ok  ")));
}

TEST(GkDoctor, ALoopAtFourFifthsOfItsRateIsWell) {
  std::string minute = kLateMinute;
  minute.replace(minute.find("39.9"), 4, "40.0").replace(minute.find("0.005341"), 8, "0.005");
  const CannedHost host = cannedHost(troubledHost(minute));
  EXPECT_THAT(runGk({"doctor", "--host", host.address()}).out,
              AllOf(HasSubstr("ok  GKSensors keeps its rate: 40.0 of 50.0 "),
                    HasSubstr("ok  GKSensors is on time: ")));
}

TEST(GkDoctor, AHostThatTellsNothingOfTheLastMinuteIsJudgedByItsWholeLife) {
  const CannedHost host = cannedHost(troubledHost());
  EXPECT_THAT(
      runGk({"doctor", "--host", host.address()}).out,
      AllOf(HasSubstr("ok  GKSensors is on time: 99.9 % of its ticks since its start at most "
                      "0.30 ms late (limit 5 ms)\n"),
            Not(HasSubstr("keeps its rate"))));
}

TEST_P(OnTerminals, DoctorBreaksItsLinesBetweenWords) {
  const CannedHost host = cannedHost(troubledHost(kLateMinute));
  TerminalProgram sut({GK_PROGRAM, "doctor", "--host", host.address()}, GetParam(), 60);
  EXPECT_EQ(sut.wait(), 1);
  const std::vector<std::string> lines = sut.screen().lines();
  EXPECT_THAT(lines[0], StartsWith("not well at "));
  // Word by word as without a terminal.
  std::string text = sut.screen().text();
  for (std::size_t at = 0; (at = text.find("\n    ", at)) != std::string::npos;) {
    text.replace(at, 5, " ");
  }
  const std::string plain = runGk({"doctor", "--host", host.address()}).out;
  const auto worst = [](const std::string& all) {
    const std::size_t begin = all.find("NO  ");
    return all.substr(begin, all.find('\n', begin) - begin);
  };
  EXPECT_EQ(worst(text), worst(plain));
}

/// Raises events at given times of the virtual clock.
std::string raising(const TemporaryFolder& folder) {
  const std::string file = folder.file("claps.jsonl");
  std::string text;
  for (const char* time : {"0.1", "0.2", "0.3", "5", "5.1"}) {
    text += std::string(R"({"t":)") + time +
            R"(,"call":"GKMemory.raiseEvent","args":["Clap",1.0]})" + "\n";
  }
  text += R"({"t":5.2,"call":"GKMemory.raiseEvent","args":["Word","said"]})"
          "\n";
  writeFile(file, text);
  return file;
}

std::vector<std::string> linesWith(const std::vector<std::string>& lines, const std::string& part) {
  std::vector<std::string> found;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
               [&part](const std::string& line) { return line.find(part) != std::string::npos; });
  return found;
}

TEST_P(OnTerminals, RepeatsAreFoldedIntoALineWithTheirNumber) {
  const TemporaryFolder folder;
  TerminalProgram sut({GK_PROGRAM, "replay", "--only", "event", raising(folder)}, GetParam(), 100);
  EXPECT_EQ(sut.wait(), 0);
  // A narrow terminal has narrower columns: nothing is broken.
  const std::string clap = "event    Clap" + std::string(GetParam() == 60 ? 22 : 30, ' ') + " 1.0";
  EXPECT_THAT(linesWith(sut.screen().lines(), "Clap"),
              ElementsAre("     0.100  " + clap, "     0.300  " + clap + "  x 3",
                          "     5.000  " + clap, "     5.100  " + clap + "  x 2"));
}

TEST(GkTerminal, WhatMattersStandsOutUnlessColoursAreNotWanted) {
  const TemporaryFolder folder;
  const std::vector<std::string> command = {GK_PROGRAM, "replay", "--only", "event",
                                            raising(folder)};
  TerminalProgram coloured(command, 80, 100);
  EXPECT_EQ(coloured.wait(), 0);
  EXPECT_THAT(coloured.written(),
              AllOf(HasSubstr("\x1b[1mevent    Clap "), HasSubstr("\x1b[2mevent    Clap "),
                    HasSubstr("\x1b[1;32mevent    Word ")));
  TerminalProgram plain(command, 80, 100, {"NO_COLOR=1"});
  EXPECT_EQ(plain.wait(), 0);
  EXPECT_THAT(plain.written(), AllOf(HasSubstr("Clap"), Not(HasSubstr("m"
                                                                      "event"))));
  EXPECT_EQ(linesWith(plain.screen().lines(), " event "),
            linesWith(coloured.screen().lines(), " event "));
}

TEST_P(OnTerminals, ANameThatDiffersOftenIsFoldedAndEachDifferenceFitsIntoItsLine) {
  const TemporaryFolder folder;
  const std::vector<std::string> command = {GK_PROGRAM, "diff", folder.file("a.jsonl"),
                                            folder.file("b.jsonl")};
  std::string a;
  std::string b;
  for (int i = 0; i < 12; ++i) {
    const std::string begin =
        "{\"t\":" + std::to_string(i) + R"(,"kind":"event","name":"Often","value":)";
    a += begin + std::to_string(i) + "}\n";
    b += begin + std::to_string(100 + i) + "}\n";
  }
  a += R"({"t":20,"kind":"event","name":"AnEventWithAVeryLongNameThatFitsIntoNoColumn","value":1})"
       "\n";
  writeFile(command[2], a);
  writeFile(command[3], b);
  TerminalProgram sut(command, GetParam(), 100);
  EXPECT_EQ(sut.wait(), 1);
  EXPECT_THAT(linesWith(sut.screen().lines(), " changed  Often "), SizeIs(5));
  EXPECT_THAT(linesWith(sut.screen().lines(), " 4 -> 104"), SizeIs(1));
  EXPECT_THAT(linesWith(sut.screen().lines(), "more of Often: counted below"), SizeIs(1));
  EXPECT_THAT(linesWith(sut.screen().lines(), "    20.000  missing  AnEvent"), SizeIs(1));
  EXPECT_THAT(sut.written(), HasSubstr("\x1b[33m"));
  const ProgramResult piped = runGk({"diff", command[2], command[3]});
  EXPECT_EQ(countOf(piped.out, " changed  Often "), 12U);
  EXPECT_THAT(piped.out, Not(HasSubstr("\x1b")));
}

TEST(GkTerminal, APipeGetsALineForEachEvent) {
  const TemporaryFolder folder;
  const ProgramResult result = runGk({"replay", "--only", "event", raising(folder)});
  EXPECT_EQ(countOf(result.out, "Clap"), 5U);
  EXPECT_THAT(result.out, AllOf(Not(HasSubstr("\x1b")), Not(HasSubstr("\r"))));
}

TEST(GkTerminal, QuietRunsShowNothingButTheirSum) {
  const TemporaryFolder folder;
  const ProgramResult result = runGk({"replay", "--quiet", raising(folder)});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr(" ticks, "));
  EXPECT_THAT(runGk({"replay", "-q", "--only", "event", "--out", "-", raising(folder)}).out,
              HasSubstr(R"("name":"Clap")"));
}

TEST(GkTerminal, ShowKeepsTheNamedEventsAndChangesNothingElse) {
  const TemporaryFolder folder;
  const std::string file = raising(folder);
  const std::string out = folder.file("out.jsonl");
  const ProgramResult part = runGk({"replay", "--only", "event", "--show", "Cl*,Wor", file});
  const ProgramResult word = runGk({"replay", "--only", "event", "--show", "Word", file});
  EXPECT_EQ(countOf(part.out, "\n"), 6U) << part.out;
  EXPECT_EQ(word.out, "     5.200  event    Word                               \"said\"\n");
  EXPECT_EQ(runGk({"replay", "--out", "-", "--show", "Word", file}).out,
            runGk({"replay", "--out", "-", file}).out);
}

} // namespace
