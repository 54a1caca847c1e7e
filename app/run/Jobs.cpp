#include "app/run/Jobs.h"

#include "app/options/Command.h"
#include "app/session/Libraries.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace gk::app {

namespace {

constexpr int kSignalled = 128;

/// A process that is running for a job.
struct Running {
  std::string name;
  /// Where its standard error goes.
  int errors = -1;
};

/// What a process wrote: its last line, and those before.
struct Told {
  std::string before;
  std::string last;
};

Told toldBy(int descriptor) {
  std::string text;
  std::array<char, 4096> part{};
  ssize_t size = 0;
  lseek(descriptor, 0, SEEK_SET);
  while ((size = read(descriptor, part.data(), part.size())) > 0) {
    text.append(part.data(), static_cast<std::size_t>(size));
  }
  const std::size_t end = text.find_last_not_of('\n');
  if (end == std::string::npos) {
    return {};
  }
  const std::size_t begin = text.find_last_of('\n', end);
  const std::size_t first = begin == std::string::npos ? 0 : begin + 1;
  return {text.substr(0, first), text.substr(first, end + 1 - first)};
}

/// Starts a job. Returns its process, or -1.
pid_t start(const Job& job, int errors) {
  std::vector<std::string> arguments = {"gk"};
  arguments.insert(arguments.end(), job.arguments.begin(), job.arguments.end());
  std::vector<char*> raw;
  raw.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) {
    raw.push_back(argument.data());
  }
  raw.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  pid_t process = -1;
  const int error =
      posix_spawn(&process, programFile().c_str(), &actions, nullptr, raw.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  errno = error;
  return error == 0 ? process : -1;
}

} // namespace

int runJobs(const std::vector<Job>& jobs, unsigned int parallel) {
  std::map<pid_t, Running> running;
  auto next = jobs.begin();
  int result = kSuccess;
  while (next != jobs.end() || !running.empty()) {
    while (next != jobs.end() && running.size() < parallel) {
      const Job& job = *next++;
      const int errors = memfd_create("errors", MFD_CLOEXEC);
      const pid_t process = errors >= 0 ? start(job, errors) : -1;
      if (process < 0) {
        fmt::print("{}: cannot be started: {}\n", job.name, std::strerror(errno));
        result = worseOf(result, kFailure);
        close(errors);
        continue;
      }
      running[process] = {job.name, errors};
    }
    int status = 0;
    const auto ended = running.find(wait(&status));
    if (ended != running.end()) {
      const int code = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
      const Told told = toldBy(ended->second.errors);
      if (code == kExpectationFailed) {
        fmt::print(stderr, "{}", told.before);
      }
      fmt::print("{}: {}\n", ended->second.name, told.last);
      std::fflush(stdout);
      close(ended->second.errors);
      running.erase(ended);
      result = worseOf(result, code);
    }
  }
  return result;
}

} // namespace gk::app
