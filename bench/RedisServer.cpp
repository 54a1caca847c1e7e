#include "bench/RedisServer.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <hiredis/hiredis.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace gk::bench {

namespace {

constexpr int kPort = 16379;
constexpr const char* kPortText = "16379";

} // namespace

RedisServer::RedisServer() {
  std::array arguments = {
      "redis-server", "--port", kPortText,    "--bind",  "127.0.0.1",
      "--save",       "",       "--loglevel", "warning", static_cast<const char*>(nullptr)};
  posix_spawnp(&fProcess, arguments[0], nullptr, nullptr,
               const_cast<char* const*>(arguments.data()), environ);
  for (int tries = 0; tries < 100; ++tries) {
    fConnection = redisConnect("127.0.0.1", kPort);
    if (fConnection != nullptr && fConnection->err == 0) {
      return;
    }
    redisFree(fConnection);
    fConnection = nullptr;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  throw std::runtime_error("redis-server does not answer");
}

RedisServer::~RedisServer() {
  redisFree(fConnection);
  kill(fProcess, SIGTERM);
  waitpid(fProcess, nullptr, 0);
}

void RedisServer::set(const std::string& key, float value) {
  freeReplyObject(
      redisCommand(fConnection, "SET %b %b", key.data(), key.size(), &value, sizeof value));
}

float RedisServer::get(const std::string& key) {
  auto* reply =
      static_cast<redisReply*>(redisCommand(fConnection, "GET %b", key.data(), key.size()));
  float value = 0;
  if (reply != nullptr && reply->len == sizeof value) {
    std::memcpy(&value, reply->str, sizeof value);
  }
  freeReplyObject(reply);
  return value;
}

} // namespace gk::bench
