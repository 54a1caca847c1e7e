#include "gateway/server/FrameStream.h"

#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>

namespace gk::gateway {

/// Outlives the stream where a write does.
struct FrameStream::Turn {
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

FrameStream::FrameStream(ByteStream stream, Now now)
    : fNext(std::move(stream)),
      fTurn(std::make_shared<Turn>(fNext.get_executor(), std::move(now))) {}

FrameStream::~FrameStream() {
  fTurn->isOver = true;
  fTurn->pass();
}

FrameStream::Clock::duration FrameStream::stalledFor() const {
  return fTurn->isTaken ? fTurn->now() - fTurn->lastProgress : Clock::duration::zero();
}

std::size_t FrameStream::writeNow(const boost::asio::const_buffer& bytes, error_code& error) {
  error = {};
  if (fTurn->isTaken) {
    return 0;
  }
  const std::size_t written = fNext.write_some(bytes, error);
  if (error == boost::asio::error::would_block) {
    error = {};
  }
  return written;
}

void FrameStream::xWrite(const std::shared_ptr<Turn>& turn, ByteStream::Bytes buffers,
                         ByteStream::Done done) {
  if (turn->isTaken) {
    turn->ended.async_wait(
        [this, turn, buffers = std::move(buffers), done = std::move(done)](error_code) mutable {
          if (turn->isOver) {
            done(boost::asio::error::operation_aborted, 0);
          } else {
            xWrite(turn, std::move(buffers), std::move(done));
          }
        });
    return;
  }
  turn->isTaken = true;
  turn->lastProgress = turn->now();
  constexpr auto onProgress = [](void* about) {
    auto* const its = static_cast<Turn*>(about);
    its->lastProgress = its->now();
  };
  fNext.write(
      buffers, onProgress, turn,
      ByteStream::Done([turn, done = std::move(done)](error_code error, std::size_t size) mutable {
        turn->pass();
        done(error, size);
      }));
}

} // namespace gk::gateway
