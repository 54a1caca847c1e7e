#pragma once

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace gk::test {

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

inline void writeFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

/// A folder that disappears with its content.
class TemporaryFolder {
public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "gk-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("no temporary folder");
    }
    fPath = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return fPath; }
  std::string file(const std::string& name) const { return (fPath / name).string(); }

private:
  std::filesystem::path fPath;
};

struct ProgramResult {
  int code = 0;
  std::string out;
  std::string err;
};

/// This process becomes the program `arguments[0]`. A test that is killed leaves no program behind.
[[noreturn]] inline void become(std::vector<std::string>& arguments) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::vector<char*> raw;
  for (std::string& argument : arguments) {
    raw.push_back(argument.data());
  }
  raw.push_back(nullptr);
  execv(raw[0], raw.data());
  _exit(127);
}

/// Of what waitpid tells: the code, or 128 + the signal that ended the program.
inline int exitCode(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// A program that runs beside the test. Killed when it still runs at destruction.
class Program {
public:
  /// Starts `arguments[0]` in `folder`, with standard output and error going to files.
  explicit Program(std::vector<std::string> arguments,
                   const std::filesystem::path& folder = std::filesystem::current_path()) {
    fPid = fork();
    if (fPid == 0) {
      redirect("out", STDOUT_FILENO);
      redirect("err", STDERR_FILENO);
      std::filesystem::current_path(folder);
      become(arguments);
    }
  }
  ~Program() {
    if (fPid > 0) {
      kill(fPid, SIGKILL);
      waitpid(fPid, nullptr, 0);
    }
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t pid() const { return fPid; }
  std::string outSoFar() const { return readFile(fFiles.path() / "out"); }
  /// What it has written since it had written so many bytes.
  std::string outSince(std::size_t size) const {
    std::ifstream file(fFiles.path() / "out", std::ios::binary);
    file.seekg(static_cast<std::streamoff>(size));
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  std::string errSoFar() const { return readFile(fFiles.path() / "err"); }

  /// Lets it run until something holds. Raises std::runtime_error with what it has said when it
  /// ends before that.
  template <typename Condition> void runUntil(const Condition& holds) const {
    while (!holds()) {
      if (hasEnded() && !holds()) {
        throw std::runtime_error("it has ended too early: " + outSoFar() + errSoFar());
      }
      std::this_thread::yield();
    }
  }

  /// Whether it has come to its end, which wait() then gives.
  bool hasEnded() const {
    siginfo_t ended{};
    return waitid(P_PID, static_cast<id_t>(fPid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid != 0;
  }

  /// Waits for its end. The code of a program ended by a signal is 128 + the signal.
  ProgramResult wait() {
    int status = 0;
    waitpid(fPid, &status, 0);
    fPid = 0;
    return {exitCode(status), readFile(fFiles.path() / "out"), readFile(fFiles.path() / "err")};
  }

private:
  void redirect(const char* name, int descriptor) const {
    const int file =
        open((fFiles.path() / name).c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
    dup2(file, descriptor);
  }

  TemporaryFolder fFiles;
  pid_t fPid = 0;
};

inline ProgramResult
runProgram(std::vector<std::string> arguments,
           const std::filesystem::path& folder = std::filesystem::current_path()) {
  return Program(std::move(arguments), folder).wait();
}

} // namespace gk::test
