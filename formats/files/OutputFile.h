#pragma once

#include "formats/files/OutputError.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gk::formats {

struct OutputFileOptions {
  /// Files that are being read. None of them is written over, by whatever name.
  std::vector<std::string> inputs;
  /// A file of this name that is there already stays, and is an error.
  bool keepsEarlier = false;
};

/// A file that a user has named, being made: everything that gk writes goes through here.
///
/// It is written beside its place under another name and locked, and takes its place, and that of
/// an earlier file of the name, with `appear`, in one step. Until then the earlier file is
/// untouched, and nothing is left behind when the object goes or `removePartFiles` is called. The
/// new file has mode and owner of the earlier one; a symbolic link stays and what it points to is
/// replaced. A file that another process is still writing is not replaced. What is no regular file
/// (a pipe, a terminal) is written to directly.
///
/// For one thread, but for `hurry`. All errors are `OutputError`.
class OutputFile {
public:
  /// How long somebody in a hurry waits for a reader that takes nothing.
  static constexpr std::chrono::milliseconds kPatience{300};

  /// Raises when there can be no such file, when it is one of the inputs, and when it is there
  /// already and has to stay.
  explicit OutputFile(std::string path, const OutputFileOptions& options = {});

  /// The standard output of this process.
  struct Standard {};
  explicit OutputFile(Standard);

  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Writes all of it, or raises; what was not written then is gone.
  void write(std::string_view bytes);

  /// Writes over the file's first bytes, of which there are at least as many: what is known at the
  /// end only. For files that have not appeared yet.
  void writeOver(std::string_view bytes);

  /// What was written so far survives the loss of power, and so does the file's name once it has
  /// appeared.
  void sync();

  /// Gives the file its name. Writing may go on.
  void appear();
  bool hasAppeared() const noexcept { return fPart.empty(); }

  /// From now on nobody waits for a reader who reads nothing: writing raises after `kPatience`. Any
  /// thread.
  void hurry() noexcept { fIsHurried.store(true, std::memory_order_relaxed); }

  /// Where what has been written can be read.
  const std::string& place() const noexcept { return fPart.empty() ? fTarget : fPart; }
  bool isTerminal() const noexcept;

private:
  using Steady = std::chrono::steady_clock;

  void xOpenPart();
  void xRename();
  void xWaitForReader();
  [[noreturn]] void xFail(OutputError::Kind kind, const std::string& why) const;
  [[noreturn]] void xFailOnExisting() const;

  /// As it was named, for texts.
  const std::string fPath;
  const bool fKeepsEarlier;
  /// Where the file has its place, links resolved; empty for what is written to directly.
  std::string fTarget;
  /// Under which name it is written; empty once it has appeared.
  std::string fPart;
  int fFile = -1;
  /// Most bytes that a pipe or a terminal takes at once without making a writer wait; 0 for files.
  std::size_t fPiece = 0;
  bool fIsSocket = false;
  bool fIsNameSynced = true;
  std::atomic<bool> fIsHurried{false};
};

/// Raises `OutputError` when `path` is one of the files in `inputs`, by whatever name.
void expectNoInput(const std::string& path, const std::vector<std::string>& inputs);

/// Whether there is anything of this name, be it a link to nothing.
bool isTaken(const std::string& path);

/// The name of a part of a file: "folder/run.mcap" -> "folder/run-007.mcap".
std::string partName(const std::string& path, std::uint64_t number);

/// "folder/run.mcap" -> "folder/run-2.mcap", or the first one with a higher number that is free.
/// Begins with `number`.
std::string nextFreeName(const std::string& path, std::uint64_t number = 2);

} // namespace gk::formats
