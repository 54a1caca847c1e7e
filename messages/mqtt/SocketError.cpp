#include "messages/mqtt/SocketError.h"

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace gk::messages {

int socketError(int socket) {
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
  tcp_info info{};
  socklen_t infoSize = sizeof info;
  const bool isKnown = getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &infoSize) == 0;
  const bool isRefused = isKnown && info.tcpi_state == TCP_CLOSE && info.tcpi_rtt == 0;
  return error == 0 && isRefused ? ECONNREFUSED : error;
}

bool isUnreached(int error) {
  return error == ECONNREFUSED || error == ENETUNREACH || error == EHOSTUNREACH ||
         error == ETIMEDOUT || error == EADDRNOTAVAIL;
}

} // namespace gk::messages
