#pragma once

#include "gateway/net/ByteStream.h"

#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

namespace gk::gateway {

/// The connection under a WebSocket, on which two write: Beast its answers to pings and closes, and
/// we whole batches of frames. They take turns; a write is taken as a whole, so that nothing ends
/// up in the middle of a frame. Each of the two writes once at a time. For one thread.
class FrameStream {
public:
  using next_layer_type = ByteStream;
  using executor_type = ByteStream::executor_type;
  using error_code = boost::system::error_code;
  using Clock = std::chrono::steady_clock;
  using Now = std::function<Clock::time_point()>;

  FrameStream(ByteStream stream, Now now);
  ~FrameStream();
  FrameStream(const FrameStream&) = delete;
  FrameStream& operator=(const FrameStream&) = delete;

  ByteStream& next_layer() noexcept { return fNext; }
  const ByteStream& next_layer() const noexcept { return fNext; }
  executor_type get_executor() noexcept { return fNext.get_executor(); }

  /// For how long the client has taken nothing of what is being written.
  Clock::duration stalledFor() const;

  template <class Buffers, class Token>
  auto async_read_some(const Buffers& buffers, Token&& token) {
    return fNext.async_read_some(buffers, std::forward<Token>(token));
  }

  /// Writes what the client takes at once, nothing while a write is under way. Tells how much that
  /// was.
  std::size_t writeNow(const boost::asio::const_buffer& bytes, error_code& error);

  /// Writes all of the buffers, when the other one's write has ended.
  template <class Buffers, class Token>
  auto async_write_some(const Buffers& buffers, Token&& token) {
    return boost::asio::async_initiate<Token, void(error_code, std::size_t)>(
        [this](auto&& handler, const Buffers& given) {
          xWrite(fTurn, ByteStream::bytes(given),
                 ByteStream::Done(std::forward<decltype(handler)>(handler)));
        },
        token, buffers);
  }

private:
  struct Turn;

  void xWrite(const std::shared_ptr<Turn>& turn, ByteStream::Bytes buffers, ByteStream::Done done);

  ByteStream fNext;
  std::shared_ptr<Turn> fTurn;
};

template <class Handler>
void async_teardown(boost::beast::role_type role, FrameStream& stream, Handler&& handler) {
  stream.next_layer().tearDown(role, ByteStream::Ended(std::forward<Handler>(handler)));
}

} // namespace gk::gateway
