#include "app/run/Watching.h"

#include "app/options/Command.h"
#include "app/session/Complaints.h"
#include "app/session/Libraries.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace gk::app {

namespace {

/// How often the files are looked at. What is being written looks the same twice when it is done.
constexpr std::chrono::milliseconds kPause{100};

/// What tells one content of a file from another; nothing for a file that is not there.
struct State {
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;
  std::int64_t size = 0;
  std::uint64_t inode = 0;

  bool operator==(const State&) const = default;
};
using States = std::map<std::string, std::optional<State>>;

States statesOf(const std::vector<std::string>& files) {
  States states;
  for (const std::string& file : files) {
    struct stat about {};
    states[file] = ::stat(file.c_str(), &about) == 0
                       ? std::optional(State{about.st_mtim.tv_sec, about.st_mtim.tv_nsec,
                                             about.st_size, about.st_ino})
                       : std::nullopt;
  }
  return states;
}

/// The files that are there and have changed, by their names.
std::string changesOf(const States& before, const States& now) {
  std::string names;
  for (const auto& [file, state] : now) {
    if (state && before.at(file) != state) {
      names += (names.empty() ? "" : ", ") + std::filesystem::path(file).filename().string();
    }
  }
  return names;
}

/// Returns false, with the reason in `errno`, when it cannot be started.
bool runOnce(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "gk");
  std::vector<char*> raw;
  raw.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) {
    raw.push_back(argument.data());
  }
  raw.push_back(nullptr);
  pid_t process = -1;
  errno = ::posix_spawn(&process, programFile().c_str(), nullptr, nullptr, raw.data(), environ);
  if (errno != 0) {
    return false;
  }
  while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
  return true;
}

} // namespace

int runOnChanges(const std::vector<std::string>& arguments, const std::vector<std::string>& files) {
  while (true) {
    // What changes while it runs is a reason to run again.
    const States played = statesOf(files);
    if (!runOnce(arguments)) {
      complain(fmt::format("cannot be started again: {}", std::strerror(errno)));
      return kFailure;
    }
    States now;
    States before = played;
    do {
      std::this_thread::sleep_for(kPause);
      before = std::exchange(now, statesOf(files));
    } while (changesOf(played, now).empty() || before != now);
    complain(fmt::format("{} changed", changesOf(played, now)));
  }
}

} // namespace gk::app
