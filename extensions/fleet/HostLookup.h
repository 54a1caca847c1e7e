#pragma once

#include <memory>
#include <optional>
#include <string>

namespace gk::fleet {

/// Asks the name service without waiting for it, so that whoever connects afterwards need not wait
/// either. For one thread.
class HostLookup {
public:
  HostLookup();
  ~HostLookup();
  HostLookup(const HostLookup&) = delete;
  HostLookup& operator=(const HostLookup&) = delete;

  void start(const std::string& host);
  bool isRunning() const noexcept { return fRequest != nullptr; }

  /// Nothing while it is running; otherwise why there is no address, empty when there is one.
  std::optional<std::string> poll();
  void cancel() noexcept;

private:
  struct Request;
  std::unique_ptr<Request> fRequest;
};

} // namespace gk::fleet
