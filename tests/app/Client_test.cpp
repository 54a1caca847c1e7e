#include "support/Gk.h"
#include "support/RunningHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sys/stat.h>
#include <thread>

// The commands that ask a running host, against one.

namespace {

using gk::test::kTouch;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::runGk;
using gk::test::RunningHost;
using gk::test::runProgram;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string kToken = "0123456789abcdef0123456789abcdef";

TEST(GkClient, ModulesAreListedAndDescribed) {
  const RunningHost host;
  const ProgramResult modules = host.gk({"modules"});
  EXPECT_EQ(modules.code, 0) << modules.err;
  EXPECT_THAT(modules.out,
              AllOf(StartsWith("MODULE"), HasSubstr("\nGKSonar"), HasSubstr("\nGKMemory")));
  EXPECT_THAT(host.gk({"modules", "--json"}).out, StartsWith(R"({"modules":[{"name":)"));
  const ProgramResult battery = host.gk({"describe", "GKBattery"});
  EXPECT_THAT(battery.out, AllOf(HasSubstr("getBatteryCharge() -> int"),
                                 HasSubstr("\n  BatteryChargingFlagChanged\n")));
  // Methods that a module has from its base say so.
  EXPECT_THAT(battery.out, testing::Not(HasSubstr("(of ")));
  EXPECT_THAT(host.gk({"describe", "GKSonar"}).out,
              AllOf(HasSubstr("\n  unsubscribe(string name)  (of GKExtractor)\n"),
                    HasSubstr("\n  _getFilteredValues() -> vector of float\n")));
}

TEST(GkClient, MethodsAreCalledWithWords) {
  const RunningHost host;
  EXPECT_EQ(host.gk({"call", "GKBattery.getBatteryCharge"}).out, "100\n");
  EXPECT_EQ(host.gk({"call", "GKMemory.insertData", "Mine", "[1,2.5,\"x\"]"}).out, "");
  EXPECT_EQ(host.gk({"call", "GKMemory.getData", "Mine"}).out, "[1,2.5,\"x\"]\n");
  // A method that takes a string gets one, whatever it looks like.
  EXPECT_EQ(host.gk({"call", "GKSensors.getMyPeriod", "30"}).code, 0);
  const ProgramResult failed = host.gk({"call", "GKMemory.getData", "None"});
  EXPECT_EQ(failed.code, 1);
  EXPECT_EQ(failed.err, "gk: GKMemory::getData: there is no key None\n");
}

TEST(GkClient, KeysAreReadWrittenAndFound) {
  const RunningHost host;
  EXPECT_THAT(host.gk({"set", kTouch, "1"}).out, EndsWith(kTouch + "  1.0\n"));
  EXPECT_EQ(host.gk({"get", kTouch, "--json"}).out, "{\"" + kTouch + "\":1.0}\n");
  EXPECT_THAT(host.gk({"set", "Mine/Text", "hello there"}).out, HasSubstr("\"hello there\""));
  EXPECT_THAT(host.gk({"set", "Mine/Number", "-3"}).out, EndsWith("-3\n"));
  EXPECT_EQ(host.gk({"keys", "Mine/*", "--json"}).out,
            R"({"Mine/Number":-3,"Mine/Text":"hello there"})"
            "\n");
  const ProgramResult all = host.gk({"keys"});
  EXPECT_THAT(all.out, AllOf(HasSubstr("Motion/IsStand"), HasSubstr(kTouch)));
  EXPECT_EQ(host.gk({"set", kTouch, "much"}).code, 1);
}

TEST(GkClient, AnEmptyTokenFileAndAPortThatIsNoneAreErrors) {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"run", "--token-file", ""}, {"keys", "--token-file", ""}}) {
    const ProgramResult result = runGk(command);
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.err, AllOf(HasSubstr("--token-file"), HasSubstr("the value is empty")));
  }
  for (const char* host : {"127.0.0.1:99999", "127.0.0.1:65536", "127.0.0.1:0", "127.0.0.1:"}) {
    const ProgramResult result = runGk({"keys", "--host", host});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              std::string("gk: ") + host + " is no host; 127.0.0.1:8090 would be one\n");
  }
}

TEST(GkClient, WhatOthersNameReachesTheTerminalClean) {
  RunningHost host;
  EXPECT_EQ(host.gk({"call", "GKMemory.raiseEvent", "Evil\x1b[2J\nForged", "x\xC2\x9Bm"}).code, 0);
  const std::string clean = "Evil?[2J?Forged";
  host.program().runUntil(
      [&host] { return host.program().outSoFar().find("Forged") != std::string::npos; });
  EXPECT_THAT(host.program().outSoFar(), AllOf(HasSubstr(clean), HasSubstr("\"x?m\"")));
  EXPECT_THAT(host.gk({"keys", "Evil"}).out, HasSubstr(clean));
}

TEST(GkClient, LimitsAreThoseOfTheCommandLine) {
  const RunningHost host({"--robot", "none", "--limit", "keys=1", "--limit", "values=10"});
  EXPECT_EQ(host.gk({"set", "Mine", "1"}).code, 0);
  const ProgramResult refused = host.gk({"set", "Another", "1"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err,
            "gk: Another: clients have made 1 keys, and may make no more (--limit keys=N)\n");
  EXPECT_THAT(host.gk({"set", "Mine", "abcdefghijk"}).err, HasSubstr("at most 10 bytes, not 11"));
  const ProgramResult unknown = runGk({"run", "--limit", "kyes=1"});
  EXPECT_EQ(unknown.code, 2);
  EXPECT_THAT(unknown.err, HasSubstr("kyes=1: there is no such limit"));
}

/// Until it listens, touches pass unseen: they go on until one is shown.
void showATouch(const RunningHost& host, const Program& events) {
  int touches = 0;
  events.runUntil([&] {
    host.gk({"set", kTouch, std::to_string(touches++ % 2)});
    return !events.outSoFar().empty();
  });
}

TEST(GkClient, EventsAreShownAsTheyAreRaised) {
  const RunningHost host;
  Program events({GK_PROGRAM, "events", "Front*", "--count", "1", "--host", host.address()});
  showATouch(host, events);
  const ProgramResult result = events.wait();
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.out, HasSubstr("event    FrontTactilTouched"));
}

TEST(GkClient, WatchedKeysAreShownAtOnce) {
  const RunningHost host;
  const ProgramResult watched = host.gk({"watch", "Motion/IsStand", "--count", "1"});
  EXPECT_THAT(watched.out, testing::MatchesRegex(" +[0-9]+[.][0-9]+  Motion/IsStand  0.0\n"));
  EXPECT_THAT(host.gk({"watch", "robotPose", "--count", "1"}).out,
              testing::MatchesRegex(" +[0-9.]+  robotPose  [A-Z][A-Za-z]+\n"));
  EXPECT_THAT(
      host.gk({"watch", "Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value", "--count", "1"})
          .out,
      EndsWith("/Value  0.000 kg\n"));
  EXPECT_EQ(host.gk({"watch", "Motion/IsStand", "--count", "1", "--json"}).out,
            "{\"Motion/IsStand\":0.0}\n");
}

TEST(GkClient, UnknownNamesAreAnsweredWithTheNearest) {
  const RunningHost host;
  for (const auto& [command, complaint] :
       std::initializer_list<std::pair<std::vector<std::string>, const char*>>{
           {{"describe", "GKSonr"}, "gk: there is no module GKSonr; did you mean GKSonar?\n"},
           {{"call", "GKSonr.subscribe"}, "gk: there is no module GKSonr; did you mean GKSonar?\n"},
           {{"call", "GKSonar.subscrib"},
            "gk: there is no method GKSonar.subscrib; did you mean subscribe, unsubscribe or "
            "getSubscribersInfo?\n"},
           {{"get", "Motion/IsStnd"}, "did you mean Motion/IsStand?\n"},
           {{"watch", "Motion/IsStnd"}, "did you mean Motion/IsStand?\n"}}) {
    const ProgramResult result = host.gk(command);
    EXPECT_EQ(result.code, 2) << command[1];
    EXPECT_THAT(result.err, EndsWith(complaint));
    EXPECT_EQ(result.out, "");
  }
}

TEST(GkClient, TopShowsLoopsOnce) {
  const RunningHost host;
  const ProgramResult top = host.gk({"top", "--interval", "0.2"});
  EXPECT_EQ(top.code, 0);
  EXPECT_THAT(top.out, AllOf(StartsWith("gksensors "), HasSubstr("\nGKSensors")));
}

TEST(GkClient, TopShowsWhoListens) {
  const RunningHost host;
  Program watch({GK_PROGRAM, "watch", "Motion/IsStand", "--host", host.address()});
  watch.runUntil([&watch] { return !watch.outSoFar().empty(); });
  EXPECT_THAT(
      host.gk({"top", "--interval", "0.1"}).out,
      testing::ContainsRegex("\nclients 1 .*\nLOST SAMPLES .*\n0 +0 +127.0.0.1:[0-9]+ gk/"));
  // Programs get what they always got.
  EXPECT_THAT(host.gk({"top", "--json"}).out,
              AllOf(Not(HasSubstr("lastMinute")), Not(HasSubstr("\"clients\""))));
}

TEST(GkClient, DoctorFindsAHostThatIsFedWell) {
  const RunningHost host({"--no-tour"});
  // Lateness depends on how busy the machine is that runs the tests.
  const ProgramResult doctor = host.gk({"doctor"});
  for (const char* good : {"the host is up", "it is ready", "versions agree", "clocks agree",
                           "device keys are fresh", "GKSensors ticks", "GKSonar answers"}) {
    EXPECT_THAT(doctor.out, HasSubstr(std::string("ok  ") + good));
  }
  EXPECT_THAT(doctor.out,
              AllOf(HasSubstr("GKSensors is on time: 99.9 % of its ticks in the last minute"),
                    HasSubstr("GKSensors keeps its rate: ")));
}

TEST(GkClient, DoctorShowsWhatModulesTellOfThemselves) {
  RunningHost host({"--robot", "none", "--library", "+" GK_TEST_LIBRARIES "/libTellsStatus.so"});
  std::string told;
  // They are asked once the host is up.
  host.program().runUntil([&] {
    told = host.gk({"doctor"}).out;
    return told.find("TellsStatus: link") != std::string::npos &&
           told.find("TellsStatus queue") != std::string::npos;
  });
  EXPECT_THAT(told, AllOf(HasSubstr("ok  TellsStatus queue: 12 jobs\n"),
                          HasSubstr("NO  TellsStatus: link: no cable: for ")));
}

TEST(GkClient, AModuleWhoseStatusHangsHoldsNobodyUp) {
  RunningHost host({"--robot", "none", "--library", "+" GK_TEST_LIBRARIES "/libTellsStatus.so",
                    "--setting", "TellsStatus/Does=hang"});
  host.program().runUntil([&] {
    return host.program().outSoFar().find("TellsStatus.status does not tell how the module is: it "
                                          "has not returned for a second") != std::string::npos;
  });
  EXPECT_THAT(host.gk({"doctor"}).out, HasSubstr("ok  the host is up"));
}

TEST(GkClient, DoctorFindsStaleDeviceKeys) {
  const RunningHost host;
  const ProgramResult doctor = host.gk({"doctor", "--json"});
  EXPECT_EQ(doctor.code, 1);
  EXPECT_THAT(doctor.out, HasSubstr(R"({"what":"device keys are fresh","isGood":false)"));
}

TEST(GkClient, AHostThatIsNotThereIsSaidInOneLine) {
  for (const char* command : {"modules", "keys", "events", "top", "doctor"}) {
    const ProgramResult result = runGk({command, "--host", "127.0.0.1:1"});
    EXPECT_EQ(result.code, 1) << command;
    EXPECT_THAT(result.out + result.err, HasSubstr("no host answers at 127.0.0.1:1")) << command;
  }
  EXPECT_EQ(runGk({"modules", "--host", "127.0.0.1:x"}).code, 1);
}

TEST(GkClient, TheHostCanStandInTheEnvironment) {
  const RunningHost host;
  setenv("GK_HOST", host.address().c_str(), 1);
  EXPECT_EQ(runGk({"call", "GKBattery.getBatteryCharge"}).out, "100\n");
  unsetenv("GK_HOST");
}

TEST(GkClient, EventsEndWithTheHost) {
  RunningHost host;
  Program events({GK_PROGRAM, "events", "--host", host.address()});
  showATouch(host, events);
  kill(host.program().pid(), SIGTERM);
  EXPECT_EQ(host.program().wait().code, 0);
  const ProgramResult result = events.wait();
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err, "gk: the host has ended\n");
}

TEST(GkClient, ATokenOpensTheHost) {
  const TemporaryFolder folder;
  const std::string token = folder.file("token");
  writeFile(token, kToken + "\n");
  chmod(token.c_str(), 0600);
  const RunningHost host({"--token-file", token});
  EXPECT_THAT(host.gk({"modules"}).err, HasSubstr("use --token-file"));
  EXPECT_THAT(host.gk({"events"}).err, HasSubstr("use --token-file"));
  EXPECT_EQ(host.gk({"modules", "--token-file", token}).code, 0);
  EXPECT_EQ(host.gk({"watch", "Motion/IsStand", "--count", "1", "--token-file", token}).code, 0);
}

TEST(GkListen, AddressesThatOthersCanReachNeedAToken) {
  const ProgramResult open = runGk({"run", "--listen", "0.0.0.0:0", "--for", "1"});
  EXPECT_EQ(open.code, 2);
  EXPECT_THAT(open.err, AllOf(StartsWith("gk: --listen:"), HasSubstr("--token-file")));
  const TemporaryFolder folder;
  const std::string token = folder.file("token");
  writeFile(token, kToken);
  chmod(token.c_str(), 0644);
  const ProgramResult readable =
      runGk({"run", "--listen", "0.0.0.0:0", "--token-file", token, "--for", "1"});
  EXPECT_EQ(readable.code, 2);
  EXPECT_THAT(readable.err, HasSubstr("chmod 600"));
  chmod(token.c_str(), 0600);
  EXPECT_EQ(runGk({"run", "--listen", "0.0.0.0:0", "--token-file", token, "--for", "0.1"}).code, 0);
}

TEST(GkListen, AnAddressThatIsTakenEndsTheRun) {
  const RunningHost host;
  const ProgramResult second = runGk({"run", "--listen", host.address(), "--for", "1"});
  EXPECT_EQ(second.code, 2);
  EXPECT_THAT(second.err, HasSubstr("already in use"));
}

TEST(GkListen, WrongUsesAreRefused) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--listen", "nonsense"},
        {"--listen", "127.0.0.1:0", "--no-listen"},
        {"--listen", "127.0.0.1:0", "--speed", "max"},
        {"--token-file", "/no/such/file"}}) {
    std::vector<std::string> all = {"run", "--for", "1"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const ProgramResult result = runGk(all);
    EXPECT_EQ(result.code, 2) << arguments[1];
    EXPECT_THAT(result.err, StartsWith("gk: "));
  }
}

TEST(GkListen, WithoutItNobodyIsServed) {
  const ProgramResult quiet = runGk({"run", "--no-listen", "--for", "0.1"});
  EXPECT_EQ(quiet.code, 0);
  EXPECT_THAT(quiet.err, Not(HasSubstr("listening")));
}

TEST(GkCompletion, TheScriptIsBashAndKnowsEveryCommand) {
  const ProgramResult script = runGk({"completion", "bash"});
  EXPECT_EQ(script.code, 0);
  for (const char* command : {"run", "replay", "modules", "events", "doctor"}) {
    EXPECT_THAT(script.out, HasSubstr(std::string("    ") + command + ") options='"));
  }
  const TemporaryFolder folder;
  const std::string file = folder.file("script");
  writeFile(file, script.out +
                      "COMP_WORDS=(gk mod); COMP_CWORD=1; _gk; echo \"${COMPREPLY[@]}\"\n"
                      "COMP_WORDS=(gk top --int); COMP_CWORD=2; _gk; echo \"${COMPREPLY[@]}\"\n");
  EXPECT_EQ(runProgram({"/bin/bash", file}).out, "modules\n--interval\n");
}

} // namespace
