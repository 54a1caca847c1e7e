#include "runtime/output/Outlet.h"

#include <utility>

namespace gk::runtime {

namespace {

/// Bytes of lines that are written at once.
constexpr std::size_t kBufferSize = 64 * 1024;

} // namespace

FileOutlet::FileOutlet(std::string path, const formats::OutputFileOptions& options)
    : fFile(std::move(path), options), fIsTerminal(fFile.isTerminal()) {}

FileOutlet::FileOutlet(formats::OutputFile::Standard standard)
    : fFile(standard), fIsTerminal(fFile.isTerminal()) {}

FileOutlet::~FileOutlet() {
  if (fFile.hasAppeared()) {
    FileOutlet::flush();
  }
}

void FileOutlet::write(std::string_view line) {
  fBuffer += line;
  if (fIsTerminal || fBuffer.size() >= kBufferSize) {
    flush();
  }
}

void FileOutlet::flush() {
  if (!fError) {
    try {
      fFile.write(fBuffer);
    } catch (const formats::OutputError& error) {
      fError = error;
    }
  }
  fBuffer.clear();
}

void FileOutlet::commit() {
  flush();
  if (fError) {
    throw formats::OutputError(*fError);
  }
  fFile.appear();
}

QueuedOutlet::QueuedOutlet(std::unique_ptr<Outlet> target, std::size_t capacity)
    : fTarget(std::move(target)), fCapacity(capacity), fThread([this] { xServe(); }) {}

QueuedOutlet::~QueuedOutlet() {
  fTarget->hurry();
  {
    const std::lock_guard lock(fMutex);
    if (fIsHeld) {
      fLines.clear(); // nobody has said that they may go out
    }
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

void QueuedOutlet::hold() {
  const std::lock_guard lock(fMutex);
  fIsHeld = true;
}

void QueuedOutlet::release() {
  {
    const std::lock_guard lock(fMutex);
    fIsHeld = false;
  }
  fWake.notify_one();
}

void QueuedOutlet::flush() {
  release();
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
    fWake.wait(lock, [this] { return fIsClosing || (!fIsHeld && !fLines.empty()); });
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
