#include "app/session/Process.h"

#include "app/options/Command.h"
#include "app/options/Journal.h"
#include "app/session/Complaints.h"
#include "app/terminal/TerminalState.h"
#include "formats/files/PartFiles.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <string>
#include <system_error>
#include <unistd.h>

namespace gk::app {

namespace {

/// Signals that end a process which does nothing about them.
constexpr int kEndings[] = {SIGHUP, SIGINT, SIGPIPE, SIGTERM};

/// A launcher may have closed them: the first file that is opened would take their place.
void openStandardDescriptors() {
  int descriptor = 0;
  do {
    descriptor = ::open("/dev/null", O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) {
    ::close(descriptor);
  }
}

void endTidily(int signal) {
  formats::removePartFiles();
  restoreTerminal();
  // Its own way of ending is back already: whoever waits sees which signal it was.
  ::raise(signal);
}

} // namespace

void prepareProcess() {
  openStandardDescriptors();
  // A file that would grow too large is an error of writing as any other.
  std::signal(SIGXFSZ, SIG_IGN);
  for (const int signal : kEndings) {
    struct sigaction present {};
    ::sigaction(signal, nullptr, &present);
    if (present.sa_handler == SIG_DFL) {
      struct sigaction tidy {};
      tidy.sa_handler = endTidily;
      tidy.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
      ::sigaction(signal, &tidy, nullptr);
    }
  }
}

int finishStandardOutput(int code) {
  // Both have the same buffer.
  errno = 0;
  const bool isFlushed = std::fflush(stdout) == 0 && std::cout.flush().good();
  const int error = errno;
  if (isFlushed && std::ferror(stdout) == 0) {
    return code;
  }
  complain("cannot write standard output" +
           (error != 0 ? ": " + std::generic_category().message(error) : std::string()));
  return code == kSuccess ? kFailure : code;
}

int runProcess(const char* program, const std::function<int()>& work) {
  prepareProcess();
  try {
    return finishStandardOutput(work());
  } catch (const std::system_error& error) {
    const bool isOutput = std::ferror(stdout) != 0;
    fmt::print(stderr, "{}{}: {}\n", journalLevel(Severity::Error), program,
               isOutput ? "cannot write standard output: " + error.code().message() : error.what());
  } catch (const std::exception& error) {
    fmt::print(stderr, "{}{}: {}\n", journalLevel(Severity::Error), program, error.what());
  }
  return kFailure;
}

} // namespace gk::app
