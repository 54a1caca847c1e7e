#pragma once

#include <string>
#include <sys/types.h>

struct redisContext;

namespace gk::bench {

/// A Redis server of our own on a loopback port, and one connection to it. Gone with the object.
/// Raises `std::runtime_error` when the server cannot be started.
class RedisServer {
public:
  RedisServer();
  ~RedisServer();
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;

  void set(const std::string& key, float value);
  float get(const std::string& key);

private:
  pid_t fProcess = -1;
  redisContext* fConnection = nullptr;
};

} // namespace gk::bench
