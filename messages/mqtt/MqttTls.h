#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace gk::messages {

/// Files in PEM form.
struct MqttTls {
  /// Who may have signed the broker's certificate; the system's own list when it is empty.
  std::string caFile;
  /// With which the client proves who it is; both or none.
  std::string certificateFile;
  std::string keyFile;
};

/// What TLS needs of a client, and what went wrong with it last. For one thread.
class MqttTlsContext {
public:
  /// `host`: the name or address that the broker's certificate has to be made for. Raises
  /// `MqttError` with the file's name where one is of no use.
  MqttTlsContext(const MqttTls& files, const std::string& host);

  ssl_ctx_st* get() const noexcept { return fContext.get(); }

  /// Why the last handshake failed; empty when nothing is known.
  const std::string& problem() const noexcept { return fProblem; }
  void tell(std::string problem) { fProblem = std::move(problem); }
  const std::string& host() const noexcept { return fHost; }

private:
  void xReadFiles(const MqttTls& files) const;

  std::string fHost;
  std::string fProblem;
  std::shared_ptr<ssl_ctx_st> fContext;
};

} // namespace gk::messages
