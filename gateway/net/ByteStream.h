#pragma once

#include "gateway/net/AnyHandler.h"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/async_result.hpp>
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
  using executor_type = boost::asio::any_io_executor;
  using error_code = boost::system::error_code;
  using Done = AnyHandler<error_code, std::size_t>;
  using Ended = AnyHandler<error_code>;

  explicit ByteStream(boost::asio::ip::tcp::socket socket);
  explicit ByteStream(boost::asio::io_context& context);
  ByteStream(ByteStream&&) noexcept = default;

  executor_type get_executor() noexcept { return fStream.get_executor(); }
  boost::asio::ip::tcp::socket& socket() noexcept { return fStream.socket(); }

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

  boost::beast::tcp_stream fStream;
};

template <class Handler>
void async_teardown(boost::beast::role_type role, ByteStream& stream, Handler&& handler) {
  stream.tearDown(role, ByteStream::Ended(std::forward<Handler>(handler)));
}

} // namespace gk::gateway
