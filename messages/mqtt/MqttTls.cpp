#include "messages/mqtt/MqttTls.h"

#include "messages/mqtt/MqttMessage.h"

#include <array>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace gk::messages {

namespace {

std::string takeError() {
  constexpr std::size_t kMostText = 256;
  const unsigned long error = ERR_peek_last_error();
  ERR_clear_error();
  if (error == 0) {
    return "it cannot be read";
  }
  if (const char* reason = ERR_reason_error_string(error)) {
    return reason;
  }
  std::array<char, kMostText> text{};
  ERR_error_string_n(error, text.data(), text.size());
  return text.data();
}

[[noreturn]] void failWith(const std::string& file) {
  throw MqttError(file + ": " + takeError());
}

MqttTlsContext& contextOf(const SSL* ssl) {
  return *static_cast<MqttTlsContext*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
}

std::string textOf(int error, const std::string& host) {
  switch (error) {
  case X509_V_ERR_HOSTNAME_MISMATCH:
  case X509_V_ERR_IP_ADDRESS_MISMATCH:
    return "the broker's certificate is not for " + host;
  case X509_V_ERR_CERT_HAS_EXPIRED:
    return "the broker's certificate has expired";
  case X509_V_ERR_CERT_NOT_YET_VALID:
    return "the broker's certificate is not valid yet: is this robot's clock right?";
  case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
  case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
  case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
  case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
  case X509_V_ERR_CERT_SIGNATURE_FAILURE:
    return "the broker's certificate is not signed by the CA that is trusted here";
  default:
    return std::string("the broker's certificate is refused: ") +
           X509_verify_cert_error_string(error);
  }
}

int onVerify(int isFine, X509_STORE_CTX* store) {
  if (isFine == 0) {
    const auto* ssl = static_cast<const SSL*>(
        X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    MqttTlsContext& context = contextOf(ssl);
    context.tell(textOf(X509_STORE_CTX_get_error(store), context.host()));
  }
  return isFine;
}

/// The other side says what it does not like, which libmosquitto keeps to itself.
void onInfo(const SSL* ssl, int where, int code) {
  constexpr int kCloseNotify = 0;
  if ((where & SSL_CB_ALERT) != 0 && (where & SSL_CB_READ) != 0 && (code & 0xFF) != kCloseNotify) {
    contextOf(ssl).tell(std::string("the broker ends the TLS handshake: ") +
                        SSL_alert_desc_string_long(code));
  }
}

/// Nobody is there to be asked.
int noPassPhrase(char* /*buffer*/, int /*size*/, int /*isWriting*/, void* /*data*/) {
  return 0;
}

bool isAddress(const std::string& host) {
  ASN1_OCTET_STRING* address = a2i_IPADDRESS(host.c_str());
  ASN1_OCTET_STRING_free(address);
  return address != nullptr;
}

} // namespace

MqttTlsContext::MqttTlsContext(const MqttTls& files, const std::string& host)
    : fHost(host), fContext(SSL_CTX_new(TLS_client_method()), SSL_CTX_free) {
  ERR_clear_error();
  SSL_CTX* context = fContext.get();
  if (context == nullptr) {
    throw MqttError("TLS cannot be used: " + takeError());
  }
  SSL_CTX_set_app_data(context, this);
  SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
  // As libmosquitto does: what is left of a message is written later, from wherever it lies then.
  SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                SSL_MODE_RELEASE_BUFFERS);
  SSL_CTX_set_default_passwd_cb(context, noPassPhrase);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, onVerify);
  SSL_CTX_set_info_callback(context, onInfo);
  X509_VERIFY_PARAM* rules = SSL_CTX_get0_param(context);
  X509_VERIFY_PARAM_set_hostflags(rules, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  if (isAddress(host)) {
    X509_VERIFY_PARAM_set1_ip_asc(rules, host.c_str());
  } else {
    X509_VERIFY_PARAM_set1_host(rules, host.c_str(), host.size());
  }
  ERR_clear_error();
  xReadFiles(files);
}

void MqttTlsContext::xReadFiles(const MqttTls& files) const {
  SSL_CTX* context = fContext.get();
  if (files.caFile.empty()) {
    SSL_CTX_set_default_verify_paths(context);
  } else if (SSL_CTX_load_verify_locations(context, files.caFile.c_str(), nullptr) != 1) {
    failWith(files.caFile);
  }
  if (files.certificateFile.empty() != files.keyFile.empty()) {
    throw MqttError("a certificate and its key belong together: one of the two files is missing");
  }
  if (files.certificateFile.empty()) {
    return;
  }
  if (SSL_CTX_use_certificate_chain_file(context, files.certificateFile.c_str()) != 1) {
    failWith(files.certificateFile);
  }
  if (SSL_CTX_use_PrivateKey_file(context, files.keyFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_check_private_key(context) != 1) {
    failWith(files.keyFile);
  }
}

} // namespace gk::messages
