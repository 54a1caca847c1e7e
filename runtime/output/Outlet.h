#pragma once

#include "formats/files/OutputFile.h"
#include "gk/GKPriorityMutex.h"
#include "messages/notices/Backlog.h"

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace gk::runtime {

/// Where lines go.
class Outlet {
public:
  virtual ~Outlet() = default;

  /// Writes one whole line, which ends in '\n'. One call at a time.
  virtual void write(std::string_view line) = 0;

  /// Puts out what is still held back.
  virtual void flush() = 0;

  /// Makes the output final. Raises `OutputError` when some of it could not be written. Without
  /// this call, output that can still be taken back disappears.
  virtual void commit() { flush(); }

  /// From now on nobody waits for a reader who reads nothing. Any thread.
  virtual void hurry() noexcept {}
};

/// A file that appears under its name, in place of an earlier one, only with `commit`. What is no
/// regular file (a pipe, a device) is written to directly.
class FileOutlet : public Outlet {
public:
  /// Raises `OutputError` when the file cannot be written.
  explicit FileOutlet(std::string path, const formats::OutputFileOptions& options = {});
  /// Puts out what cannot be taken back.
  ~FileOutlet() override;

  void write(std::string_view line) override;
  void flush() override;
  void commit() override;
  void hurry() noexcept override { fFile.hurry(); }

protected:
  explicit FileOutlet(formats::OutputFile::Standard standard);

private:
  formats::OutputFile fFile;
  /// People want to see each line at once.
  const bool fIsTerminal;
  std::string fBuffer;
  /// What went wrong first. From then on nothing is written.
  std::optional<formats::OutputError> fError;
};

/// The standard output. A reader who goes away ends the output and nothing else, if the process
/// does not mind SIGPIPE.
class StandardOutlet : public FileOutlet {
public:
  StandardOutlet() : FileOutlet(formats::OutputFile::Standard()) {}
};

/// Hands lines to another outlet on a thread of its own, so that nobody ever waits for it: when
/// too many lines wait, or too large ones, the oldest are dropped and counted.
class QueuedOutlet : public Outlet {
public:
  static constexpr std::size_t kCapacity = 16384;

  explicit QueuedOutlet(std::unique_ptr<Outlet> target, std::size_t capacity = kCapacity);
  ~QueuedOutlet() override;

  /// From `hold` to `release` or `flush` lines wait; without either they are thrown away.
  void hold();
  void release();

  void write(std::string_view line) override;
  /// Waits until everything queued is out.
  void flush() override;
  void commit() override;
  void hurry() noexcept override { fTarget->hurry(); }

  std::size_t dropped() const;

private:
  void xServe();

  std::unique_ptr<Outlet> fTarget;
  mutable GK::GKPriorityMutex fMutex;
  std::condition_variable fWake;
  std::condition_variable fEmptied;
  messages::Backlog<std::string> fLines;
  bool fIsHeld = false;
  bool fIsWriting = false;
  bool fIsClosing = false;
  std::thread fThread;
};

} // namespace gk::runtime
