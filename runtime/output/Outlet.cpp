#include "runtime/output/Outlet.h"

#include <utility>
#include <vector>

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
    : fTarget(std::move(target)), fLines(capacity), fThread([this] { xServe(); }) {}

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
    fLines.add(std::string(line), sizeof(std::string) + line.size());
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
  fEmptied.wait(lock, [this] { return fLines.isEmpty() && !fIsWriting; });
}

void QueuedOutlet::commit() {
  flush();
  fTarget->commit();
}

std::size_t QueuedOutlet::dropped() const {
  const std::lock_guard lock(fMutex);
  return fLines.dropped();
}

void QueuedOutlet::xServe() {
  std::vector<std::string> lines;
  std::unique_lock<std::mutex> lock(fMutex);
  while (true) {
    fWake.wait(lock, [this] { return fIsClosing || (!fIsHeld && !fLines.isEmpty()); });
    if (fLines.isEmpty()) {
      return;
    }
    fLines.takeAll(lines);
    fIsWriting = true;
    lock.unlock();
    for (const std::string& line : lines) {
      fTarget->write(line);
    }
    fTarget->flush();
    lines.clear();
    lock.lock();
    fIsWriting = false;
    fEmptied.notify_all();
  }
}

} // namespace gk::runtime
