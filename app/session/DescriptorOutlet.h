#pragma once

#include "runtime/output/Outlet.h"

#include <string>
#include <string_view>

namespace gk::app {

/// A file that is open already, and stays so.
class DescriptorOutlet final : public runtime::Outlet {
public:
  explicit DescriptorOutlet(int descriptor) : fDescriptor(descriptor) {}

  void write(std::string_view line) override;
  void flush() override;
  /// Raises `OutputError`.
  void commit() override;

private:
  const int fDescriptor;
  std::string fBuffer;
  /// What went wrong first. From then on nothing is written.
  int fError = 0;
};

} // namespace gk::app
