#include "formats/files/OutputFile.h"

#include "formats/files/PartFiles.h"

#include <climits>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace gk::formats {

namespace {

namespace fs = std::filesystem;
using Kind = OutputError::Kind;

/// How often somebody who waits for a reader looks whether there is a hurry.
constexpr std::chrono::milliseconds kReaderPoll{50};
/// A pipe that can be written to has room for so much (POSIX). A terminal may have less.
constexpr std::size_t kPipePiece = PIPE_BUF;
constexpr std::size_t kTerminalPiece = 256;
constexpr mode_t kNewMode = 0666;
constexpr mode_t kModeBits = 07777;

std::string textOf(int error) {
  return std::generic_category().message(error);
}

/// What a path stands for, links followed; nothing when nothing is there.
std::optional<struct stat> statusOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

/// The place that a path stands for, also where nothing is yet.
fs::path resolved(fs::path path) {
  constexpr int mostLinks = 40; // as the system has it
  std::error_code error;
  for (int i = 0; i < mostLinks && fs::is_symlink(fs::symlink_status(path, error)); ++i) {
    const fs::path next = fs::read_symlink(path, error);
    if (error) {
      break;
    }
    path = next.is_absolute() ? next : path.parent_path() / next;
  }
  return path;
}

/// "folder/run.mcap" -> "folder/run-SUFFIX.mcap"
std::string suffixed(const std::string& path, const std::string& suffix) {
  const fs::path whole(path);
  fs::path name = whole.stem();
  name += "-" + suffix;
  name += whole.extension();
  return (whole.parent_path() / name).string();
}

/// Whether a signal waits that is to end this process.
bool isEndPending() {
  sigset_t pending;
  ::sigpending(&pending);
  return sigismember(&pending, SIGINT) != 0 || sigismember(&pending, SIGTERM) != 0 ||
         sigismember(&pending, SIGHUP) != 0;
}

/// Opens what is no regular file. A pipe that nobody reads yet is waited for, unless the process is
/// to end. Returns a descriptor that never makes a writer wait, or -1.
int openDirectly(const std::string& path, bool isPipe) {
  while (true) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file >= 0 || errno != ENXIO || !isPipe || isEndPending()) {
      return file;
    }
    ::poll(nullptr, 0, static_cast<int>(kReaderPoll.count()));
  }
}

/// Whether somebody is writing this file. Nobody else ever locks one.
bool isLocked(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) {
    return false;
  }
  const bool isOthers = ::flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(file);
  return isOthers;
}

} // namespace

void expectNoInput(const std::string& path, const std::vector<std::string>& inputs) {
  const std::optional<struct stat> status = statusOf(path);
  if (!status || !S_ISREG(status->st_mode)) {
    return;
  }
  for (const std::string& input : inputs) {
    const std::optional<struct stat> other = statusOf(input);
    if (other && other->st_dev == status->st_dev && other->st_ino == status->st_ino) {
      throw OutputError(Kind::Name, "cannot write " + path + ": it is the file being read");
    }
  }
}

bool isTaken(const std::string& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

std::string partName(const std::string& path, std::uint64_t number) {
  constexpr std::size_t digits = 3;
  const std::string text = std::to_string(number);
  return suffixed(path, std::string(digits - std::min(digits, text.size()), '0') + text);
}

std::string nextFreeName(const std::string& path, std::uint64_t number) {
  while (isTaken(suffixed(path, std::to_string(number)))) {
    ++number;
  }
  return suffixed(path, std::to_string(number));
}

OutputFile::OutputFile(std::string path, const OutputFileOptions& options)
    : fPath(std::move(path)), fKeepsEarlier(options.keepsEarlier) {
  expectNoInput(fPath, options.inputs);
  const std::optional<struct stat> earlier = statusOf(fPath);
  if (earlier && !S_ISREG(earlier->st_mode)) {
    fFile = openDirectly(fPath, S_ISFIFO(earlier->st_mode));
    if (fFile < 0) {
      xFail(Kind::Name, textOf(errno));
    }
    fPiece = isTerminal() ? kTerminalPiece : kPipePiece;
    return;
  }
  fTarget = resolved(fPath).string();
  if (earlier && fKeepsEarlier) {
    xFailOnExisting();
  }
  if (earlier && ::access(fPath.c_str(), W_OK) != 0) {
    xFail(Kind::Name, textOf(errno));
  }
  if (earlier && isLocked(fTarget)) {
    xFail(Kind::Exists, "it is being written by another program");
  }
  xOpenPart();
  if (earlier) {
    // An owner other than oneself is the right of few.
    [[maybe_unused]] const int ignored = ::fchown(fFile, earlier->st_uid, earlier->st_gid);
    ::fchmod(fFile, earlier->st_mode & kModeBits);
  }
}

OutputFile::OutputFile(Standard) : fPath("standard output"), fKeepsEarlier(false) {
  fFile = ::dup(STDOUT_FILENO);
  struct stat status {};
  if (fFile < 0 || ::fstat(fFile, &status) != 0) {
    xFail(Kind::Write, textOf(errno));
  }
  if (!S_ISREG(status.st_mode)) {
    fIsSocket = S_ISSOCK(status.st_mode);
    fPiece = isTerminal() ? kTerminalPiece : kPipePiece;
  }
}

OutputFile::~OutputFile() {
  if (!fPart.empty()) {
    ::unlink(fPart.c_str());
    forgetPartFile(fPart);
  }
  if (fFile >= 0) {
    ::close(fFile);
  }
}

bool OutputFile::isTerminal() const noexcept {
  return ::isatty(fFile) != 0;
}

/// Beside the file itself: only within one file system can it be moved into place in one step.
void OutputFile::xOpenPart() {
  std::string part = fTarget + ".part" + std::to_string(::getpid());
  const auto open = [&part] {
    return ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewMode);
  };
  fFile = open();
  if (fFile < 0 && errno == EEXIST) {
    if (isLocked(part)) {
      xFail(Kind::Name, "it is being written already");
    }
    // Left behind by a process of the same number, which was killed.
    ::unlink(part.c_str());
    fFile = open();
  }
  if (fFile < 0) {
    xFail(Kind::Name, textOf(errno));
  }
  // Where locks are unknown, there are none.
  ::flock(fFile, LOCK_EX | LOCK_NB);
  rememberPartFile(part);
  fPart = std::move(part);
}

void OutputFile::write(std::string_view bytes) {
  while (!bytes.empty()) {
    std::size_t count = bytes.size();
    if (fPiece > 0) {
      xWaitForReader();
      count = std::min(count, fPiece);
    }
    // A socket with any room at all counts as ready, however little that is.
    const ssize_t written = fIsSocket
                                ? ::send(fFile, bytes.data(), count, MSG_DONTWAIT | MSG_NOSIGNAL)
                                : ::write(fFile, bytes.data(), count);
    if (written < 0 && errno != EINTR && errno != EAGAIN) {
      xFail(Kind::Write, textOf(errno));
    }
    bytes.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
  }
}

void OutputFile::writeOver(std::string_view bytes) {
  off_t place = 0;
  while (!bytes.empty()) {
    const ssize_t written = ::pwrite(fFile, bytes.data(), bytes.size(), place);
    if (written < 0 && errno != EINTR) {
      xFail(Kind::Write, textOf(errno));
    }
    bytes.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    place += std::max<ssize_t>(written, 0);
  }
}

void OutputFile::xWaitForReader() {
  const Steady::time_point begin = Steady::now();
  pollfd writable{fFile, POLLOUT, 0};
  while (::poll(&writable, 1, static_cast<int>(kReaderPoll.count())) == 0) {
    if (fIsHurried.load(std::memory_order_relaxed) && Steady::now() - begin >= kPatience) {
      xFail(Kind::Write, "its reader does not read");
    }
  }
}

void OutputFile::sync() {
  // Pipes and devices have nothing to keep.
  if (::fdatasync(fFile) != 0 && errno != EINVAL && errno != EROFS) {
    xFail(Kind::Write, textOf(errno));
  }
  if (!fIsNameSynced && hasAppeared()) {
    fIsNameSynced = true;
    const fs::path folder = fs::path(fTarget).parent_path();
    const int open =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (open >= 0) {
      ::fsync(open);
      ::close(open);
    }
  }
}

void OutputFile::appear() {
  if (!fPart.empty()) {
    xRename();
    forgetPartFile(fPart);
    fPart.clear();
    fIsNameSynced = false;
  }
}

void OutputFile::xRename() {
  const auto rename = [this](unsigned flags) {
    return ::renameat2(AT_FDCWD, fPart.c_str(), AT_FDCWD, fTarget.c_str(), flags) == 0 ? 0 : errno;
  };
  int error = rename(fKeepsEarlier ? RENAME_NOREPLACE : 0);
  if (error == EINVAL && fKeepsEarlier) {
    // A file system that cannot do that in one step.
    error = statusOf(fTarget) ? EEXIST : rename(0);
  }
  if (error == EEXIST && fKeepsEarlier) {
    xFailOnExisting();
  }
  if (error != 0) {
    xFail(Kind::Write, textOf(error));
  }
}

void OutputFile::xFail(OutputError::Kind kind, const std::string& why) const {
  throw OutputError(kind, "cannot write " + fPath + ": " + why);
}

void OutputFile::xFailOnExisting() const {
  throw OutputError(Kind::Exists, fPath + " exists already; " + nextFreeName(fPath) +
                                      " is free, --overwrite replaces it");
}

} // namespace gk::formats
