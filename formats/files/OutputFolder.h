#pragma once

#include <string>

namespace gk::formats {

/// A folder that a user has named, being made. It is filled beside its place under another name and
/// takes its place with `appear`, in one step; until then nothing is left of it when the object
/// goes or `removePartFiles` is called. There must be nothing of its name. For one thread. All
/// errors are `OutputError`.
class OutputFolder {
public:
  explicit OutputFolder(const std::string& path);
  ~OutputFolder();
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;

  /// Its last part: "run" of "bags/run/".
  const std::string& name() const noexcept { return fName; }

  /// Where its files are to be put meanwhile.
  const std::string& place() const noexcept { return fPart; }

  /// Once all is in it.
  void appear();

private:
  [[noreturn]] void xFail(const std::string& why) const;
  [[noreturn]] void xFailOnExisting() const;

  /// Without a "/" at its end.
  std::string fPath;
  std::string fName;
  /// Empty once it has appeared.
  std::string fPart;
};

} // namespace gk::formats
