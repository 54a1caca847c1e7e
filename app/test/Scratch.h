#pragma once

#include <string>
#include <sys/types.h>

namespace gk::app {

/// A file without a name, for what a process writes; copies are not made. It can be read by its
/// path as long as the object lives. Where /proc is not mounted it needs a name until then.
class Scratch {
public:
  enum class Place { Memory, Disk };

  /// Raises `std::system_error` when there is no room for one.
  explicit Scratch(Place place = Place::Memory);
  ~Scratch();
  Scratch(Scratch&& other) noexcept;
  Scratch& operator=(Scratch&& other) noexcept;

  int descriptor() const noexcept { return fDescriptor; }
  std::string path() const;
  bool isEmpty() const;

  /// Its last bytes, whole lines where there are any.
  std::string tail(std::size_t most = std::size_t{64} * 1024) const;

private:
  void xOpenWithName();

  int fDescriptor = -1;
  /// Empty for a file without a name.
  std::string fName;
  /// Who removes it: not a process that was forked meanwhile.
  pid_t fOwner = -1;
};

} // namespace gk::app
