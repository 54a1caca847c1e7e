#pragma once

#include "gateway/net/AnyHandler.h"

#include <boost/asio/async_result.hpp>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace gk::gateway {

/// A TCP connection with a time limit for what it does, as Beast's algorithms want it: an
/// asynchronous stream. They are templates; what lies below this class is not, and is compiled
/// once. For one thread.
class ByteStream {
public:
  /// The context's own: one of any kind would cost more than what is done on it.
  using executor_type = boost::asio::io_context::executor_type;
  using Socket = boost::asio::basic_stream_socket<boost::asio::ip::tcp, executor_type>;
  using error_code = boost::system::error_code;
  using Done = AnyHandler<error_code, std::size_t>;
  using Ended = AnyHandler<error_code>;

  explicit ByteStream(Socket socket);
  explicit ByteStream(boost::asio::io_context& context);
  ByteStream(ByteStream&&) noexcept = default;

  executor_type get_executor() noexcept { return fStream.get_executor(); }
  Socket& socket() noexcept { return fStream.socket(); }

  /// What takes longer from now on ends with `beast::error::timeout`, and the connection with it.
  void expiresAfter(std::chrono::nanoseconds limit);
  void expiresNever();
  void close();

  void connect(const boost::asio::ip::tcp::resolver::results_type& endpoints, Ended ended);

  template <class Buffers, class Token>
  auto async_read_some(const Buffers& buffers, Token&& token) {
    return boost::asio::async_initiate<Token, void(error_code, std::size_t)>(
        [this](auto&& handler, const Buffers& wanted) {
          xRead(room(wanted), Done(std::forward<decltype(handler)>(handler)));
        },
        token, buffers);
  }
  template <class Buffers, class Token>
  auto async_write_some(const Buffers& buffers, Token&& token) {
    return boost::asio::async_initiate<Token, void(error_code, std::size_t)>(
        [this](auto&& handler, const Buffers& given) {
          xWriteSome(bytes(given), Done(std::forward<decltype(handler)>(handler)));
        },
        token, buffers);
  }

  using Bytes = std::vector<boost::asio::const_buffer>;
  /// The buffers of any sequence.
  template <class Buffers> static Bytes bytes(const Buffers& buffers) {
    return Bytes(boost::asio::buffer_sequence_begin(buffers),
                 boost::asio::buffer_sequence_end(buffers));
  }

  /// Writes what the peer takes at once, and tells how much of it that was: most writes need
  /// nothing more. The error is `would_block` where it takes nothing.
  template <class Buffers> std::size_t write_some(const Buffers& buffers, error_code& error) {
    return fStream.socket().write_some(buffers, error);
  }

  /// Writes all of it. `onProgress` is called whenever the peer has taken a part.
  void write(const Bytes& buffers, void (*onProgress)(void* about), std::shared_ptr<void> about,
             Done done);

  /// How Beast ends the connection once both sides have said goodbye.
  void tearDown(boost::beast::role_type role, Ended ended);
  friend void beast_close_socket(ByteStream& stream) { stream.close(); }

private:
  using Room = std::array<boost::asio::mutable_buffer, 4>;

  /// The first few buffers of a sequence: a read may take less than there is room for.
  template <class Buffers> static Room room(const Buffers& buffers) {
    Room first;
    std::size_t count = 0;
    for (auto one = boost::asio::buffer_sequence_begin(buffers);
         one != boost::asio::buffer_sequence_end(buffers) && count < first.size(); ++one) {
      first[count++] = *one;
    }
    return first;
  }

  void xRead(const Room& room, Done done);
  void xWriteSome(const Bytes& bytes, Done done);

  boost::beast::basic_stream<boost::asio::ip::tcp, executor_type> fStream;
};

template <class Handler>
void async_teardown(boost::beast::role_type role, ByteStream& stream, Handler&& handler) {
  stream.tearDown(role, ByteStream::Ended(std::forward<Handler>(handler)));
}

} // namespace gk::gateway
