#pragma once

#include <string>

namespace gk::app {

/// A file without a name, for what a process writes; copies are not made. It can be read by its
/// path as long as the object lives.
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
  int fDescriptor = -1;
};

} // namespace gk::app
