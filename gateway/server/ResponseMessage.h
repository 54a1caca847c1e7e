#pragma once

#include "gateway/http/Http.h"

#include <boost/asio/buffer.hpp>

#include <array>
#include <cstddef>
#include <string>

namespace gk::gateway {

/// An answer as it goes over the connection.
struct ResponseMessage {
  /// Status line and fields, with the empty line behind them.
  std::string head;
  std::string body;

  using Buffers = std::array<boost::asio::const_buffer, 2>;
  /// What is left when so many bytes have been written.
  Buffers buffers(std::size_t written = 0) const {
    return {boost::asio::buffer(head) + written,
            boost::asio::buffer(body) + (written > head.size() ? written - head.size() : 0)};
  }
  std::size_t size() const noexcept { return head.size() + body.size(); }
};

/// With the fields that keep browsers from doing more with an answer than it is meant for, and that
/// let nobody store it unless it says so itself. `version`: 10 or 11, as in the request. `isHead`:
/// its body stays here. `isLast`: the connection ends with it.
ResponseMessage responseMessage(HttpResponse response, unsigned version, bool isHead, bool isLast);

} // namespace gk::gateway
