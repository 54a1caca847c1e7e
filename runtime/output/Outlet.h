#pragma once

#include "gk/GKPriorityMutex.h"

#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace gk::runtime {

/// Output cannot be written; `what()` names the file and the reason, on one line.
class OutputError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

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
};

/// The standard output.
class StandardOutlet : public Outlet {
public:
  void write(std::string_view line) override;
  void flush() override;
};

/// The standard output with these lines alone: while this exists, whatever else is printed there,
/// by modules for instance, goes to standard error. One at a time in a process.
class ExclusiveStandardOutlet : public Outlet {
public:
  /// Raises `OutputError` when there is no standard output.
  ExclusiveStandardOutlet();
  ~ExclusiveStandardOutlet() override;

  void write(std::string_view line) override;
  void flush() override;
  void commit() override;

private:
  std::FILE* fFile = nullptr;
  bool fHasFailed = false;
};

/// A file that appears under its name, in place of an earlier one, only with `commit`. What is no
/// regular file (a pipe, a device) is written to directly.
class FileOutlet : public Outlet {
public:
  /// Raises `OutputError` when the file cannot be written.
  explicit FileOutlet(std::string path);
  ~FileOutlet() override;

  void write(std::string_view line) override;
  void flush() override;
  void commit() override;

private:
  std::string fPath;
  std::string fTemporary;
  std::FILE* fFile = nullptr;
  bool fHasFailed = false;
};

/// Hands lines to another outlet on a thread of its own, so that nobody ever waits for it: when
/// too many lines wait, the oldest are dropped and counted.
class QueuedOutlet : public Outlet {
public:
  static constexpr std::size_t kCapacity = 16384;

  explicit QueuedOutlet(std::unique_ptr<Outlet> target, std::size_t capacity = kCapacity);
  ~QueuedOutlet() override;

  void write(std::string_view line) override;
  /// Waits until everything queued is out.
  void flush() override;
  void commit() override;

  std::size_t dropped() const;

private:
  void xServe();

  std::unique_ptr<Outlet> fTarget;
  const std::size_t fCapacity;
  mutable GK::GKPriorityMutex fMutex;
  std::condition_variable fWake;
  std::condition_variable fEmptied;
  std::deque<std::string> fLines;
  std::size_t fDropped = 0;
  bool fIsWriting = false;
  bool fIsClosing = false;
  std::thread fThread;
};

} // namespace gk::runtime
