#include "gateway/net/ByteStream.h"

#include <boost/asio/write.hpp>
#include <boost/beast/websocket/teardown.hpp>

namespace gk::gateway {

namespace {

/// As much as the peer takes at a time.
constexpr std::size_t kAtOnce = std::size_t(1) << 20U;

} // namespace

ByteStream::ByteStream(Socket socket) : fStream(std::move(socket)) {
  // Where this fails, so does the first operation.
  error_code ignored;
  fStream.socket().non_blocking(true, ignored);
}

ByteStream::ByteStream(boost::asio::io_context& context) : fStream(context) {}

void ByteStream::expiresAfter(std::chrono::nanoseconds limit) {
  fStream.expires_after(limit);
}

void ByteStream::expiresNever() {
  fStream.expires_never();
}

void ByteStream::close() {
  fStream.close();
}

void ByteStream::connect(const boost::asio::ip::tcp::resolver::results_type& endpoints,
                         Ended ended) {
  fStream.async_connect(endpoints, [ended = std::move(ended)](
                                       error_code error, const auto&) mutable { ended(error); });
}

void ByteStream::xRead(const Room& room, Done done) {
  fStream.async_read_some(room, std::move(done));
}

void ByteStream::xWriteSome(const Bytes& bytes, Done done) {
  fStream.async_write_some(bytes, std::move(done));
}

void ByteStream::write(const Bytes& buffers, void (*onProgress)(void*), std::shared_ptr<void> about,
                       Done done) {
  const auto progress = [onProgress, about = std::move(about)](error_code failure, std::size_t) {
    onProgress(about.get());
    return failure ? std::size_t(0) : kAtOnce;
  };
  boost::asio::async_write(fStream, buffers, progress, std::move(done));
}

void ByteStream::tearDown(boost::beast::role_type role, Ended ended) {
  using boost::beast::websocket::async_teardown;
  async_teardown(role, fStream, std::move(ended));
}

} // namespace gk::gateway
