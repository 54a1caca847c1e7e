#include "support/Gk.h"

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>

// Recordings of whole runs, repeated: what comes out must be the same to the byte.

namespace {

namespace fs = std::filesystem;
using gk::test::kData;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const fs::path kScenarios = GK_SOURCE_DIR "/tests/scenarios";

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// What a run wrote and what its repetition wrote.
void expectSameOutput(const std::string& run, const std::string& replay) {
  const std::vector<std::string> expected = linesOf(readFile(run));
  const std::vector<std::string> actual = linesOf(readFile(replay));
  ASSERT_THAT(expected, Not(IsEmpty()));
  for (std::size_t i = 0; i < std::min(expected.size(), actual.size()); ++i) {
    ASSERT_EQ(actual[i], expected[i]) << "line " << i + 1;
  }
  EXPECT_EQ(actual.size(), expected.size());
}

class Record : public testing::Test {
protected:
  /// Runs with a recording, repeats it, compares, and looks at the file.
  void runAndRepeat(const std::vector<std::string>& options) {
    run(options);
    repeat();
    const ProgramResult verify = runGk({"recording", "verify", fRecording});
    EXPECT_EQ(verify.code, 0) << verify.out;
    expectEveryEventForViewers();
  }

  void run(std::vector<std::string> options) {
    options.insert(options.begin(), {"run", "--no-listen", "--record", fRecording, "--overwrite",
                                     "--record-patience", "600", "--out", fRunOutput});
    const ProgramResult run = runGk(options);
    ASSERT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.err, HasSubstr("recorded " + fRecording));
    EXPECT_THAT(run.err, Not(HasSubstr("gk:"))); // nothing lost
  }

  /// The channels for viewers hold what the run wrote, from its first moment to its last.
  void expectEveryEventForViewers() {
    const std::vector<std::string> lines = linesOf(readFile(fRunOutput));
    const auto isEvent = [](const std::string& line) {
      return line.find(R"("kind":"event")") != std::string::npos ||
             line.find(R"("kind":"micro")") != std::string::npos;
    };
    const std::string messages = runGk({"recording", "cat", "--topic", "/events", fRecording}).out;
    EXPECT_EQ(std::ssize(linesOf(messages)), std::ranges::count_if(lines, isEvent));
  }

  void repeat(const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments = {"replay", "--out", fReplayOutput, fRecording};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const ProgramResult replay = runGk(arguments);
    ASSERT_EQ(replay.code, 0) << replay.err;
    EXPECT_THAT(replay.err, Not(HasSubstr("gk:")));
    expectSameOutput(fRunOutput, fReplayOutput);
  }

  std::string file(const std::string& name) const { return fFolder.file(name); }

  TemporaryFolder fFolder;
  const std::string fRecording = file("run.mcap");
  const std::string fRunOutput = file("run.jsonl");
  const std::string fReplayOutput = file("replay.jsonl");
};

/// A scenario that samples no keys: what is sampled depends on who looks, not on the run.
std::string withoutSample(std::string scenario) {
  const std::string before = R"("--sample", ")";
  const std::size_t place = scenario.find(before);
  if (place != std::string::npos) {
    const std::size_t end = scenario.find('"', place + before.size());
    scenario.replace(place, end + 1 - place, R"("--only", "event")");
  }
  return scenario;
}

/// Calls that overlap each other and the ticks, writes, and a module's own lock that is waited for.
constexpr const char* kVisitors = R"(
{"t": 0.05, "call": "GKSonar.subscribe", "args": ["first"]}
{"t": 0.1, "call": "GKSonar.subscribe", "args": ["second"]}
{"t": 0.2, "set": {"Device/SubDeviceList/Head/Touch/Front/Sensor/Value": 1.0}}
{"t": 0.3, "call": "GKSonar.unsubscribe", "args": ["first"]}
{"t": 0.3, "call": "GKMemory.raiseEvent", "args": ["Mine", [1, 2.5, "x", {"float": "nan"}, null]]}
{"t": 0.31, "call": "GKMemory.raiseMicroEvent", "args": ["Mine", true]}
{"t": 0.35, "call": "GKMemory.insertData", "args": ["Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value", 2.5]}
{"t": 0.4, "set": {"Device/SubDeviceList/LFoot/Bumper/Left/Sensor/Value": 1.0}}
{"t": 0.45, "fail": {"operation": "raiseEvent", "key": "FrontTactilTouched"}}
{"t": 0.5, "set": {"Device/SubDeviceList/Head/Touch/Front/Sensor/Value": 0.0}}
{"t": 0.6, "getOutput": "GKSonar"}
{"t": 0.7, "call": "GKSensors.nothing"}
{"t": 0.8, "get": ["Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value", "nothing"]}
{"t": 1.2, "call": "GKSonar.unsubscribe", "args": ["second"]}
{"t": 1.3, "call": "GKSonar.subscribe", "args": ["third", 30, 0.5]}
)";

TEST_F(Record, ARunInRealTimeIsRepeatedToTheByte) {
  writeFile(file("visitors.jsonl"), kVisitors);
  // Ends while the last call sleeps.
  runAndRepeat({"--for", "1.6", "--subscribe", "GKSonar", file("visitors.jsonl"),
                kData + "us_wallrobot.csv"});
  EXPECT_THAT(readFile(fRunOutput), HasSubstr(R"("name":"Mine")"));
}

TEST_F(Record, ARunThatAScenarioEndsIsRepeatedWithItsShutdown) {
  writeFile(file("exit.jsonl"), R"({"t": 0.1, "call": "GKSonar.subscribe", "args": ["a"]}
{"t": 0.4, "exit": true}
)");
  runAndRepeat({file("exit.jsonl")});
  // The call was asleep, and ended with the shutdown.
  EXPECT_THAT(readFile(fReplayOutput), HasSubstr(R"("call":"GKSonar.subscribe")"));
}

#if defined(__SANITIZE_THREAD__)
/// What only virtual time is about has hardly anything to do with threads, and takes long with them
/// watched.
constexpr int kScenarioStep = 8;
#else
constexpr int kScenarioStep = 1;
#endif

TEST_F(Record, EveryScenarioIsRepeatedToTheByte) {
  int count = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(kScenarios)) {
    const std::string path = entry.path().string();
    if (!path.ends_with(".jsonl") || path.ends_with(".expected.jsonl") ||
        path.ends_with(".expect.jsonl")) {
      continue;
    }
    const std::string text = readFile(path);
    if (text.find(R"("exit": )") < text.find('}') ||
        fs::exists(path.substr(0, path.rfind('.')) + ".expect.jsonl")) {
      continue; // a run that fails
    }
    if (++count % kScenarioStep != 0) {
      continue;
    }
    std::vector<std::string> options = {"--speed", "max", "--no-expect"};
    if (text.find(R"("--until")") == std::string::npos) {
      options.insert(options.end(), {"--until", "10"});
    }
    SCOPED_TRACE(path);
    writeFile(file("scenario.jsonl"), withoutSample(text));
    options.push_back(file("scenario.jsonl"));
    run(options);
    repeat();
  }
  EXPECT_GT(count, 50);
}

TEST_F(Record, ServicesThatWereLeftOutAreLeftOutAgain) {
  runAndRepeat({"--speed", "max", "--until", "2", "--without", "DCM", "--without",
                "GKResourceManager", kData + "us_wallrobot.csv"});
}

TEST_F(Record, TheWallClockIsRepeated) {
  // Before 1970, where whole seconds are counted downwards.
  runAndRepeat({"--speed", "max", "--until", "20", "--epoch", "-5", "--subscribe", "GKSonar",
                kData + "us_wallrobot.csv"});
}

TEST_F(Record, AFastRunIsRepeated) {
  runAndRepeat({"--no-listen", "--speed", "20", "--until", "4", "--subscribe", "GKSonar",
                kData + "us_wallrobot.csv"});
}

TEST_F(Record, TheSimulatedRobotsTourIsRepeatedToTheByte) {
  runAndRepeat({"--speed", "max", "--until", "70"});
  EXPECT_THAT(readFile(fReplayOutput), HasSubstr("robotPoseChanged"));
}

/// Answers to clients go to the clients: the run's output has none, the repetition's has.
constexpr const char* kWithoutAnswers = "declare,event,micro,data,order,resource,log";

/// One JSON-RPC request; the answer's text.
std::string post(int port, const std::string& body) {
  const int client = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string answer;
  if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
    const std::string request = "POST /rpc HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                                "\r\nContent-Type: application/json\r\nConnection: close\r\n"
                                "Content-Length: " +
                                std::to_string(body.size()) + "\r\n\r\n" + body;
    send(client, request.data(), request.size(), 0);
    char buffer[4096];
    for (ssize_t got = 0; (got = recv(client, buffer, sizeof(buffer), 0)) > 0;) {
      answer.append(buffer, static_cast<std::size_t>(got));
    }
  }
  close(client);
  return answer;
}

/// The port in the line that tells where the program listens; 0 before it is there.
int portOf(const std::string& text) {
  constexpr const char* before = "http://127.0.0.1:";
  const std::size_t place = text.find(before);
  return place == std::string::npos ? 0 : std::atoi(text.c_str() + place + strlen(before));
}

TEST_F(Record, TheTourInRealTimeIsRepeatedWithTheClientsThatCameAndWent) {
  Program program({GK_PROGRAM, "run", "--for", "8", "--listen", "127.0.0.1:0", "--record",
                   fRecording, "--record-patience", "600", "--out", fRunOutput, "--only",
                   kWithoutAnswers});
  int port = 0;
  program.runUntil([&] { return (port = portOf(program.errSoFar())) != 0; });
  // Until the run has ended: three clients, each with calls that sleep, fail, write and raise.
  std::vector<std::thread> clients;
  for (int client = 0; client < 3; ++client) {
    clients.emplace_back([port, client] {
      const std::string name = "client" + std::to_string(client);
      const auto call = [&](const std::string& method, const std::string& params) {
        return post(port, R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":)" +
                              params + "}");
      };
      while (!call("GKSonar.subscribe", "[\"" + name + "\"]").empty()) {
        call("GKMemory.raiseEvent", "[\"Visit\",\"" + name + "\"]");
        call("GKMemory.insertData", R"(["Simulation/Touch/Head/Touch/Rear",1.0])");
        call("GKSonar.unsubscribe", "[\"nobody\"]");
        call("GKSonar.unsubscribe", "[\"" + name + "\"]");
        call("GKMemory.insertData", R"(["Simulation/Touch/Head/Touch/Rear",0.0])");
      }
    });
  }
  const ProgramResult run = program.wait();
  for (std::thread& client : clients) {
    client.join();
  }
  ASSERT_EQ(run.code, 0) << run.err;
  repeat({"--only", kWithoutAnswers});
  EXPECT_THAT(readFile(fReplayOutput), HasSubstr(R"("name":"Visit")"));
}

TEST_F(Record, EachCallOfABatchIsRepeated) {
  Program program({GK_PROGRAM, "run", "--robot", "none", "--for", "3", "--listen", "127.0.0.1:0",
                   "--record", fRecording, "--record-patience", "600", "--out", fRunOutput,
                   "--only", kWithoutAnswers});
  int port = 0;
  program.runUntil([&] { return (port = portOf(program.errSoFar())) != 0; });
  // Calls that raise, fail, sleep and write, each in the turn in which the one before it ends.
  constexpr const char* batch = R"([
{"jsonrpc":"2.0","id":1,"method":"GKMemory.raiseEvent","params":["Visit",1]},
{"jsonrpc":"2.0","id":2,"method":"GKMemory.raiseEvent","params":["Visit",2]},
{"jsonrpc":"2.0","id":3,"method":"GKSonar.unsubscribe","params":["nobody"]},
{"jsonrpc":"2.0","id":4,"method":"GKMemory.insertData",
 "params":["Device/SubDeviceList/Head/Touch/Rear/Sensor/Value",1.0]},
{"jsonrpc":"2.0","method":"GKMemory.raiseMicroEvent","params":["Visit","quiet"]},
{"jsonrpc":"2.0","id":5,"method":"GKMemory.insertData",
 "params":["Device/SubDeviceList/Head/Touch/Rear/Sensor/Value",0.0]},
{"jsonrpc":"2.0","id":6,"method":"GKMemory.raiseEvent","params":["Visit",3]}])";
  std::vector<std::thread> clients;
  for (int client = 0; client < 2; ++client) {
    clients.emplace_back([port] {
      while (!post(port, batch).empty()) {
      }
    });
  }
  const ProgramResult run = program.wait();
  for (std::thread& client : clients) {
    client.join();
  }
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(readFile(fRunOutput), HasSubstr(R"("name":"Visit","value":3)"));
  repeat({"--only", kWithoutAnswers});
}

/// When the last sample of this output was taken.
double lastSampleIn(const std::string& text) {
  constexpr std::string_view beginning = R"({"t":)";
  const std::size_t end = text.rfind(R"(,"kind":"sample")");
  const std::size_t begin = end == std::string::npos ? end : text.rfind(beginning, end);
  return begin == std::string::npos ? 0.0 : std::atof(text.c_str() + begin + beginning.size());
}

TEST_F(Record, ARunThatIsKilledLosesItsLastSecondAtMost) {
  const std::string key = "Device/SubDeviceList/US/Left/Sensor/Value";
  Program program({GK_PROGRAM, "run", "--no-listen", "--record", fRecording, "--out", "-", "--only",
                   "sample", "--sample", key, "--loop", kData + "us_wallrobot.csv"});
  program.runUntil([&] { return lastSampleIn(program.outSoFar()) >= 2.5; });
  kill(program.pid(), SIGKILL);
  const double end = lastSampleIn(program.wait().out);
  EXPECT_EQ(runGk({"recording", "verify", fRecording}).code, 1); // it has no end
  const ProgramResult replay =
      runGk({"replay", "--out", "-", "--only", "sample", "--sample", key, fRecording});
  EXPECT_EQ(replay.code, 0) << replay.err;
  EXPECT_THAT(replay.err, HasSubstr("cut off"));
  EXPECT_GE(lastSampleIn(replay.out), end - 1.0);
}

TEST_F(Record, ACutRecordingGivesTheBeginningOfTheRun) {
  ASSERT_EQ(runGk({"run", "--speed", "max", "--until", "200", "--record", fRecording, "--out",
                   fRunOutput, "--subscribe", "GKSonar", kData + "us_wallrobot.csv"})
                .code,
            0);
  const std::string whole = readFile(fRecording);
  const std::string lines = readFile(fRunOutput);
  for (const double share : {0.3, 0.6, 0.999}) {
    const auto length = static_cast<std::size_t>(share * static_cast<double>(whole.size()));
    writeFile(fRecording, whole.substr(0, length));
    const ProgramResult replay = runGk({"replay", "--out", fReplayOutput, fRecording});
    ASSERT_EQ(replay.code, share > 0.5 ? 0 : replay.code) << replay.err;
    if (replay.code == 0) {
      EXPECT_THAT(replay.err, HasSubstr("cut off"));
      EXPECT_THAT(lines, StartsWith(readFile(fReplayOutput)));
    }
  }
}

TEST_F(Record, PartsAreRepeatedTogetherAndEachByItself) {
  ASSERT_EQ(
      runGk({"run", "--speed", "max", "--until", "120", "--record", fRecording, "--record-split",
             "30s", "--out", fRunOutput, "--subscribe", "GKSonar", kData + "us_wallrobot.csv"})
          .code,
      0);
  std::vector<std::string> parts;
  while (fs::exists(file("run-00" + std::to_string(parts.size() + 1) + ".mcap"))) {
    parts.push_back(file("run-00" + std::to_string(parts.size() + 1) + ".mcap"));
  }
  ASSERT_GE(parts.size(), 2U);
  std::vector<std::string> replay = {"replay", "--out", fReplayOutput};
  replay.insert(replay.end(), parts.begin(), parts.end());
  const ProgramResult together = runGk(replay);
  ASSERT_EQ(together.code, 0) << together.err;
  expectSameOutput(fRunOutput, fReplayOutput);

  const ProgramResult alone = runGk({"replay", "--out", fReplayOutput, parts.back()});
  EXPECT_EQ(alone.code, 0) << alone.err;
  EXPECT_THAT(alone.err, HasSubstr("begins in the middle"));
  EXPECT_THAT(readFile(fReplayOutput), HasSubstr("robotPoseChanged"));
}

TEST_F(Record, OnlyWhatHappenedAroundAnEventIsKept) {
  const ProgramResult run =
      runGk({"run", "--speed", "max", "--until", "40", "--record", fRecording, "--record-on",
             "ChestButton*", "--record-last", "3", "--record-after", "2", "--out", fRunOutput});
  ASSERT_EQ(run.code, 0) << run.err;
  const std::string first = file("run-001.mcap");
  ASSERT_TRUE(fs::exists(first)) << run.err;
  EXPECT_EQ(runGk({"recording", "verify", first}).code, 0);
  EXPECT_THAT(runGk({"recording", "cat", "--topic", "/events", first}).out,
              HasSubstr("ChestButtonPressed"));
}

TEST_F(Record, AFlippedByteIsNamedAndTheRestIsSaved) {
  ASSERT_EQ(
      runGk({"run", "--no-listen", "--speed", "max", "--until", "120", "--record", fRecording})
          .code,
      0);
  const std::string whole = readFile(fRecording);
  // Flips a byte at the first place behind this one where that has this consequence.
  const auto flipBehind = [&](std::size_t place, const std::string& consequence) {
    constexpr std::size_t step = 10'000;
    for (std::string found; found.find(consequence) == std::string::npos; place += step) {
      ASSERT_LT(place, whole.size());
      std::string bytes = whole;
      bytes[place] = static_cast<char>(bytes[place] ^ 1);
      writeFile(fRecording, bytes);
      const ProgramResult verify = runGk({"recording", "verify", fRecording});
      EXPECT_EQ(verify.code, 1);
      found = verify.out + runGk({"replay", "--out", fReplayOutput, fRecording}).err;
    }
  };
  const std::string saved = file("saved.mcap");
  flipBehind(whole.size() / 2, "gk: 1 damaged places were left out of the repetition\n");
  EXPECT_EQ(runGk({"replay", "--out", fReplayOutput, fRecording}).code, 1);
  EXPECT_EQ(runGk({"recording", "recover", fRecording, saved}).code, 0);
  EXPECT_EQ(runGk({"recording", "verify", saved}).code, 0);

  // Without its first chunk nobody knows the names of the keys.
  flipBehind(1000, "values of keys of which the names are lost");
  EXPECT_EQ(runGk({"recording", "recover", "--overwrite", fRecording, saved}).code, 1);
  EXPECT_EQ(runGk({"replay", "--out", fReplayOutput, fRecording}).code, 1);
}

TEST_F(Record, ARecordingOfAnyKindBecomesAnyOther) {
  for (const std::string name : {"us_wallrobot", "battery_discharge", "biped_walk"}) {
    const std::string original = kData + name + ".csv";
    ASSERT_EQ(runGk({"recording", "convert", "--overwrite", original, file("a.mcap")}).code, 0);
    ASSERT_EQ(runGk({"recording", "convert", file("a.mcap"), file("b.jsonl")}).code, 0);
    ASSERT_EQ(runGk({"recording", "convert", "--overwrite", "--compression", "lz4", file("b.jsonl"),
                     file("c.mcap")})
                  .code,
              0);
    ASSERT_EQ(runGk({"recording", "convert", file("c.mcap"), file("d.csv")}).code, 0);
    ASSERT_EQ(runGk({"replay", "--out", fRunOutput, original}).code, 0);
    for (const std::string& converted : {file("a.mcap"), file("b.jsonl"), file("d.csv")}) {
      SCOPED_TRACE(converted);
      ASSERT_EQ(runGk({"replay", "--out", fReplayOutput, converted}).code, 0);
      expectSameOutput(fRunOutput, fReplayOutput);
    }
  }
}

TEST_F(Record, ARecordedRunThatIsCompressedAnewIsStillTheSameRun) {
  runAndRepeat({"--speed", "max", "--until", "5"});
  // Where a chunk ends depends on how fast it came.
  const auto messagesOf = [](const std::string& recording) {
    std::vector<std::string> lines = linesOf(runGk({"recording", "cat", recording}).out);
    std::ranges::sort(lines);
    return lines;
  };
  const std::vector<std::string> original = messagesOf(fRecording);
  EXPECT_GT(original.size(), 100U);
  for (const std::string compression : {"none", "lz4", "zstd"}) {
    SCOPED_TRACE(compression);
    const std::string copy = file(compression + ".mcap");
    ASSERT_EQ(runGk({"recording", "convert", "--compression", compression, fRecording, copy}).code,
              0);
    EXPECT_EQ(messagesOf(copy), original);
    ASSERT_EQ(runGk({"replay", "--out", fReplayOutput, copy}).code, 0);
    expectSameOutput(fRunOutput, fReplayOutput);
  }
}

TEST_F(Record, ADamagedRecordingIsNotCompressedAnew) {
  runAndRepeat({"--speed", "max", "--until", "5"});
  const std::string bytes = readFile(fRecording);
  writeFile(fRecording, bytes.substr(0, bytes.size() / 2));
  const ProgramResult result = runGk({"recording", "convert", fRecording, file("copy.mcap")});
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err, fRecording + ": is damaged; gk recording recover saves what can be read\n");
  EXPECT_FALSE(fs::exists(file("copy.mcap")));
}

TEST_F(Record, PartsOfARunWithoutALimitOfSpeedAreNearlyAsLargeAsAskedFor) {
  const ProgramResult run = runGk({"run", "--speed", "max", "--until", "120", "--record",
                                   fRecording, "--record-split", "400kB", "--out", fRunOutput});
  ASSERT_EQ(run.code, 0) << run.err;
  ASSERT_TRUE(fs::exists(file("run-002.mcap"))) << run.err;
  EXPECT_LT(fs::file_size(file("run-001.mcap")), 800'000U);
}

/// Output lines up to a time, in seconds.
std::vector<std::string> linesUntil(const std::string& path, double end) {
  std::vector<std::string> lines = linesOf(readFile(path));
  std::erase_if(lines, [end](const std::string& line) {
    const std::string before = R"({"t":)";
    return line.starts_with(before) && std::stod(line.substr(before.size())) > end;
  });
  return lines;
}

TEST_F(Record, APartIsKeptWithEverythingThatCameBefore) {
  run({"--speed", "max", "--until", "30"});
  const std::string part = file("part.mcap");
  const ProgramResult cut =
      runGk({"recording", "cut", fRecording, part, "--from", "12.5", "--to", "20"});
  ASSERT_EQ(cut.code, 0) << cut.err;
  EXPECT_THAT(cut.out, StartsWith(part + ": "));
  EXPECT_EQ(runGk({"recording", "verify", part}).code, 0);
  EXPECT_LT(fs::file_size(part), fs::file_size(fRecording) * 3 / 4);

  // It says what is to be shown, and viewers find that alone in it.
  EXPECT_THAT(runGk({"recording", "info", part}).out, HasSubstr("gk.cut.from"));
  const std::vector<std::string> messages =
      linesOf(runGk({"recording", "cat", "--topic", "/tick", part}).out);
  EXPECT_EQ(messages.size(), 76U); // ten a second, both ends included
  EXPECT_THAT(messages.front(), HasSubstr(R"("log_time":1767225612500000000,)"));

  // It is repeated as the whole is, as far as it goes, and differs in nothing from what it tells.
  ASSERT_EQ(runGk({"replay", part, "--only", "event,micro", "--out", fReplayOutput}).code, 0);
  ASSERT_EQ(runGk({"replay", fRecording, "--only", "event,micro", "--out", fRunOutput}).code, 0);
  EXPECT_EQ(linesOf(readFile(fReplayOutput)), linesUntil(fRunOutput, 20));
  const ProgramResult diff = runGk({"diff", part});
  EXPECT_EQ(diff.code, 0) << diff.out;
  EXPECT_EQ(runGk({"diff", fRecording, part}).code, 1);
  EXPECT_EQ(runGk({"diff", part, part}).code, 0);

  // A part of a part.
  ASSERT_EQ(runGk({"recording", "cut", part, file("less.mcap"), "--to", "15"}).code, 0);
  ASSERT_EQ(
      runGk({"replay", file("less.mcap"), "--only", "event,micro", "--out", fReplayOutput}).code,
      0);
  EXPECT_EQ(linesOf(readFile(fReplayOutput)), linesUntil(fRunOutput, 15));
}

TEST_F(Record, APartOfATableOrAScenarioEndsWhereItShould) {
  const std::string table = kData + "us_wallrobot.csv";
  ASSERT_EQ(runGk({"recording", "cut", table, file("part.csv"), "--to", "2"}).code, 0);
  const std::vector<std::string> rows = linesOf(readFile(file("part.csv")));
  EXPECT_LE(std::stod(rows.back()), 2.0);
  EXPECT_GT(std::stod(rows.back()), 1.5);
  writeFile(file("three.jsonl"), R"({"t": 1, "set": {"A": 1}}
{"t": 2, "set": {"A": 2}}
{"t": 2.5, "set": {"A": 3}}
)");
  ASSERT_EQ(runGk({"recording", "cut", file("three.jsonl"), file("two.jsonl"), "--to", "2"}).code,
            0);
  EXPECT_EQ(linesOf(readFile(file("two.jsonl"))).size(), 2U);
  ASSERT_EQ(runGk({"recording", "cut", file("three.jsonl"), file("two.mcap"), "--to", "2"}).code,
            0);
  EXPECT_EQ(runGk({"recording", "verify", file("two.mcap")}).code, 0);
}

TEST_F(Record, APartThatCannotBeIsRefusedAndNothingIsLeft) {
  run({"--speed", "max", "--until", "2"});
  const std::string part = file("part.mcap");
  const auto refused = [&](const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"recording", "cut", fRecording, part};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const ProgramResult result = runGk(arguments);
    EXPECT_EQ(result.code, 2);
    EXPECT_FALSE(fs::exists(part));
    return result.err;
  };
  EXPECT_EQ(refused({"--from", "2", "--to", "1"}), "gk: --to 1 comes before --from 2\n");
  EXPECT_THAT(refused({"--from", "nan"}), HasSubstr("--from"));
  EXPECT_THAT(refused({"--to", "-1"}), HasSubstr("--to"));
  std::string bytes = readFile(fRecording);
  bytes[bytes.size() / 3] = static_cast<char>(bytes[bytes.size() / 3] ^ 1);
  writeFile(fRecording, bytes);
  EXPECT_EQ(refused({"--to", "2"}),
            fRecording + ": is damaged; gk recording recover saves what can be read\n");
  writeFile(file("a.csv"), "time,KEY\n0,1\n");
  EXPECT_THAT(runGk({"recording", "cut", file("a.csv"), file("b.csv"), "--from", "1"}).err,
              HasSubstr("--from is for .mcap files"));
  EXPECT_FALSE(fs::exists(file("b.csv")));
}

TEST_F(Record, ARecordingOfTheFirstEncodingIsRepeated) {
  const std::string old = GK_SOURCE_DIR "/fuzz/corpus/mcap/run_zstd.mcap";
  EXPECT_EQ(runGk({"recording", "verify", old}).code, 0);
  ASSERT_EQ(runGk({"replay", old, "--out", fReplayOutput}).code, 0);
  ASSERT_EQ(runGk({"recording", "cut", old, file("new.mcap")}).code, 0);
  ASSERT_EQ(runGk({"replay", file("new.mcap"), "--out", fRunOutput}).code, 0);
  EXPECT_THAT(runGk({"recording", "info", file("new.mcap")}).out, HasSubstr("gk.run.2"));
  expectSameOutput(fRunOutput, fReplayOutput);
}

TEST_F(Record, WhatIsNoRecordingIsOneLineAndExitCodeTwo) {
  writeFile(fRecording, "time,KEY\n");
  for (const std::string command : {"info", "verify", "cat"}) {
    const ProgramResult result = runGk({"recording", command, fRecording});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.err, StartsWith(fRecording + ": "));
  }
  EXPECT_EQ(runGk({"replay", fRecording}).code, 2);
  EXPECT_EQ(runGk({"recording", "info", file("missing.mcap")}).code, 2);
  EXPECT_EQ(runGk({"recording", "convert", kData + "us_wallrobot.csv", file("x.txt")}).code, 2);
  EXPECT_EQ(runGk({"run", "--for", "0.1", "--record", "/no/such/folder/x.mcap"}).code, 2);
  EXPECT_EQ(runGk({"run", "--for", "0.1", "--record", file("x.txt")}).code, 2);
  EXPECT_EQ(runGk({"run", "--for", "0.1", "--record-last", "5"}).code, 2);
}

} // namespace
