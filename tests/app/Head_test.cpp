#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

// What a run says before its first line, and whom it serves.

namespace {

using gk::test::ProgramResult;
using gk::test::runGk;
using gk::test::runProgram;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

TEST(GkHead, FourLinesStandBeforeWhatTheModulesReport) {
  // Both outputs as a terminal shows them.
  const ProgramResult run = runProgram(
      {"/bin/sh", "-c", GK_PROGRAM " run --robot none --listen 127.0.0.1:0 --for 0.5 2>&1"});
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.out,
              ContainsRegex("^robot: none, all keys stay as they are\n"
                            "listening at http://127\\.0\\.0\\.1:[0-9]+/\n"
                            "(there is no page at this address[^\n]*\n)?"
                            "what the modules report follows; [^\n]*gk watch robotPose\n"
                            "Ctrl-C ends it, and 0\\.5 s from now it ends by itself\n[^\n]"))
      << run.out;
  EXPECT_THAT(run.out, HasSubstr("\nended by its time limit\n"));
}

TEST(GkHead, TheRobotIsNamedAsItWasAskedFor) {
  EXPECT_THAT(
      runGk({"run", "--no-tour", "--no-noise", "--seed", "7", "--no-listen", "--for", "0.1"}).err,
      testing::StartsWith("robot: simulated, seed 7, exact sensors\n"));
  const std::string file = gk::test::kData + "feet_stand.csv";
  EXPECT_THAT(runGk({"run", "--no-listen", "--for", "0.1", file}).err,
              testing::StartsWith("robot: what is recorded in " + file + "\n"));
}

/// Somebody who listens where hosts do in general, unless another one does already.
class DefaultPort {
public:
  DefaultPort() : fSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int yes = 1;
    setsockopt(fSocket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(8090);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    fIsOurs = bind(fSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
              listen(fSocket, 1) == 0;
  }
  ~DefaultPort() { close(fSocket); }
  DefaultPort(const DefaultPort&) = delete;
  DefaultPort& operator=(const DefaultPort&) = delete;

  bool isOurs() const { return fIsOurs; }

private:
  int fSocket;
  bool fIsOurs = false;
};

TEST(GkHead, ATakenDefaultPortLeavesARunUnservedWhichSaysWhoHasIt) {
  const std::string taken = "\nserves nobody: 127.0.0.1:8090 is taken by ";
  ProgramResult run;
  bool isOurs = false;
  do {
    const DefaultPort port;
    isOurs = port.isOurs();
    run = runGk({"run", "--robot", "none", "--for", "0.1"});
    // Another test's run may have had the port and be gone.
  } while (!isOurs && run.err.find(taken) == std::string::npos);
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.err, HasSubstr(taken));
  EXPECT_THAT(run.err, Not(HasSubstr("listening at")));
  if (isOurs) {
    EXPECT_THAT(run.err, HasSubstr("(process " + std::to_string(getpid()) + "); --listen"));
  }
}

} // namespace
