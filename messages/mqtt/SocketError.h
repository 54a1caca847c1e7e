#pragma once

namespace gk::messages {

/// What has happened to a TCP socket, as an `errno`; 0 for nothing. Whoever has written to it may
/// have taken the error: a connection that has gone without a single answer to measure was refused.
int socketError(int socket);

/// Whether an error of a socket says that it has never been connected.
bool isUnreached(int error);

} // namespace gk::messages
