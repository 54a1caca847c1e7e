#include "runtime/output/Outlet.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <unistd.h>
#include <utility>

namespace gk::runtime {

namespace {

OutputError failure(const std::string& path, int error) {
  return OutputError("cannot write " + path + ": " + std::strerror(error));
}

} // namespace

// Through the stream that modules print to as well, so that no line lands inside another.
void StandardOutlet::write(std::string_view line) {
  std::cout.write(line.data(), static_cast<std::streamsize>(line.size()));
}

void StandardOutlet::flush() {
  std::cout.flush();
}

namespace {

/// Makes `to` another name of the open file `from`, once what was printed is out.
void redirect(int from, int to) {
  std::cout.flush();
  std::fflush(stdout);
  dup2(from, to);
}

} // namespace

ExclusiveStandardOutlet::ExclusiveStandardOutlet() {
  const int descriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  fFile = descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
  if (fFile == nullptr) {
    throw failure("standard output", errno);
  }
  redirect(STDERR_FILENO, STDOUT_FILENO);
}

ExclusiveStandardOutlet::~ExclusiveStandardOutlet() {
  redirect(fileno(fFile), STDOUT_FILENO);
  std::fclose(fFile);
}

void ExclusiveStandardOutlet::write(std::string_view line) {
  fHasFailed = std::fwrite(line.data(), 1, line.size(), fFile) != line.size() || fHasFailed;
}

void ExclusiveStandardOutlet::flush() {
  fHasFailed = std::fflush(fFile) != 0 || fHasFailed;
}

void ExclusiveStandardOutlet::commit() {
  errno = 0;
  flush();
  if (fHasFailed) {
    throw failure("standard output", errno != 0 ? errno : EIO);
  }
}

FileOutlet::FileOutlet(std::string path) : fPath(std::move(path)) {
  std::error_code ignored;
  const std::filesystem::file_status status = std::filesystem::status(fPath, ignored);
  const bool isReplaceable =
      !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
  if (isReplaceable) {
    // Beside the file itself: only within one file system can it be moved into place in one step.
    fTemporary = fPath + ".part" + std::to_string(getpid());
  }
  fFile = std::fopen((isReplaceable ? fTemporary : fPath).c_str(), "wb");
  if (fFile == nullptr) {
    throw failure(fPath, errno);
  }
}

FileOutlet::~FileOutlet() {
  if (fFile != nullptr) {
    std::fclose(fFile);
    if (!fTemporary.empty()) {
      std::remove(fTemporary.c_str());
    }
  }
}

void FileOutlet::write(std::string_view line) {
  fHasFailed = std::fwrite(line.data(), 1, line.size(), fFile) != line.size() || fHasFailed;
}

void FileOutlet::flush() {
  fHasFailed = std::fflush(fFile) != 0 || fHasFailed;
}

void FileOutlet::commit() {
  errno = 0;
  flush();
  if (fHasFailed) {
    throw failure(fPath, errno != 0 ? errno : EIO);
  }
  if (!fTemporary.empty() && std::rename(fTemporary.c_str(), fPath.c_str()) != 0) {
    throw failure(fPath, errno);
  }
  std::fclose(std::exchange(fFile, nullptr));
}

QueuedOutlet::QueuedOutlet(std::unique_ptr<Outlet> target, std::size_t capacity)
    : fTarget(std::move(target)), fCapacity(capacity), fThread([this] { xServe(); }) {}

QueuedOutlet::~QueuedOutlet() {
  {
    const std::lock_guard lock(fMutex);
    fIsClosing = true;
  }
  fWake.notify_all();
  fThread.join();
}

void QueuedOutlet::write(std::string_view line) {
  {
    const std::lock_guard lock(fMutex);
    if (fLines.size() == fCapacity) {
      fLines.pop_front();
      ++fDropped;
    }
    fLines.emplace_back(line);
  }
  fWake.notify_one();
}

void QueuedOutlet::flush() {
  std::unique_lock<std::mutex> lock(fMutex);
  fEmptied.wait(lock, [this] { return fLines.empty() && !fIsWriting; });
}

void QueuedOutlet::commit() {
  flush();
  fTarget->commit();
}

std::size_t QueuedOutlet::dropped() const {
  const std::lock_guard lock(fMutex);
  return fDropped;
}

void QueuedOutlet::xServe() {
  std::unique_lock<std::mutex> lock(fMutex);
  while (true) {
    fWake.wait(lock, [this] { return fIsClosing || !fLines.empty(); });
    if (fLines.empty()) {
      return;
    }
    std::deque<std::string> lines;
    lines.swap(fLines);
    fIsWriting = true;
    lock.unlock();
    for (const std::string& line : lines) {
      fTarget->write(line);
    }
    fTarget->flush();
    lock.lock();
    fIsWriting = false;
    fEmptied.notify_all();
  }
}

} // namespace gk::runtime
