#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/compose.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/websocket/teardown.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

namespace gk::gateway {

/// The socket under a WebSocket, on which two write: Beast its answers to pings and closes, and we
/// whole batches of frames. They take turns; a write is taken as a whole, so that nothing ends up
/// in the middle of a frame. Each of the two writes once at a time. For one thread.
class FrameStream {
public:
  using next_layer_type = boost::beast::tcp_stream;
  using executor_type = next_layer_type::executor_type;
  using Clock = std::chrono::steady_clock;
  using Now = std::function<Clock::time_point()>;

  FrameStream(next_layer_type stream, Now now)
      : fNext(std::move(stream)),
        fTurn(std::make_shared<Turn>(fNext.get_executor(), std::move(now))) {}
  ~FrameStream() {
    fTurn->isOver = true;
    fTurn->pass();
  }
  FrameStream(const FrameStream&) = delete;
  FrameStream& operator=(const FrameStream&) = delete;

  next_layer_type& next_layer() noexcept { return fNext; }
  const next_layer_type& next_layer() const noexcept { return fNext; }
  executor_type get_executor() noexcept { return fNext.get_executor(); }

  /// For how long the client has taken nothing of what is being written.
  Clock::duration stalledFor() const {
    return fTurn->isTaken ? fTurn->now() - fTurn->lastProgress : Clock::duration::zero();
  }

  template <class Buffers, class Token>
  auto async_read_some(const Buffers& buffers, Token&& token) {
    return fNext.async_read_some(buffers, std::forward<Token>(token));
  }

  /// Writes all of the buffers, when the other one's write has ended.
  template <class Buffers, class Token>
  auto async_write_some(const Buffers& buffers, Token&& token) {
    return boost::asio::async_compose<Token, void(boost::system::error_code, std::size_t)>(
        Write<Buffers>{*this, buffers}, token, fNext);
  }

private:
  /// Outlives the stream where a write does.
  struct Turn {
    Turn(const executor_type& executor, Now theNow) : now(std::move(theNow)), ended(executor) {
      ended.expires_at(Clock::time_point::max());
    }
    void pass() {
      isTaken = false;
      ended.cancel();
    }

    const Now now;
    bool isTaken = false;
    bool isOver = false;
    Clock::time_point lastProgress;
    /// Never expires: cancelled where a write ends.
    boost::asio::steady_timer ended;
  };

  template <class Buffers> class Write {
  public:
    Write(FrameStream& stream, const Buffers& buffers)
        : fStream(stream), fTurn(stream.fTurn), fBuffers(buffers) {}

    template <class Self>
    void operator()(Self& self, boost::system::error_code error = {}, std::size_t size = 0) {
      if (fIsWriting) {
        fTurn->pass();
        self.complete(error, size);
      } else if (fTurn->isOver) {
        self.complete(boost::asio::error::operation_aborted, 0);
      } else if (fTurn->isTaken) {
        boost::asio::steady_timer& ended = fTurn->ended;
        ended.async_wait(std::move(self));
      } else {
        fIsWriting = true;
        fTurn->isTaken = true;
        fTurn->lastProgress = fTurn->now();
        const auto progress = [turn = fTurn](boost::system::error_code failure, std::size_t) {
          turn->lastProgress = turn->now();
          return failure ? std::size_t(0) : kAtOnce;
        };
        next_layer_type& next = fStream.fNext;
        const Buffers buffers = fBuffers;
        boost::asio::async_write(next, buffers, progress, std::move(self));
      }
    }

  private:
    static constexpr std::size_t kAtOnce = std::size_t(1) << 20U;

    FrameStream& fStream;
    std::shared_ptr<Turn> fTurn;
    Buffers fBuffers;
    bool fIsWriting = false;
  };

  next_layer_type fNext;
  std::shared_ptr<Turn> fTurn;
};

/// How Beast ends the connection once both sides have said goodbye.
template <class Handler>
void async_teardown(boost::beast::role_type role, FrameStream& stream, Handler&& handler) {
  using boost::beast::websocket::async_teardown;
  async_teardown(role, stream.next_layer(), std::forward<Handler>(handler));
}

inline void teardown(boost::beast::role_type role, FrameStream& stream,
                     boost::system::error_code& error) {
  using boost::beast::websocket::teardown;
  teardown(role, stream.next_layer(), error);
}

} // namespace gk::gateway
