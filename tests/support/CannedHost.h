#pragma once

#include <arpa/inet.h>
#include <array>
#include <map>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace gk::test {

/// Something that answers as a host does, with what a test puts into its mouth; 404 for all else.
class CannedHost {
public:
  /// Answers by target.
  explicit CannedHost(std::map<std::string, std::string> answers) : fAnswers(std::move(answers)) {
    fListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(fListener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(fListener, 16) != 0 ||
        getsockname(fListener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::runtime_error("no address for a host");
    }
    fAddress = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    fThread = std::thread([this] { xServe(); });
  }
  ~CannedHost() {
    shutdown(fListener, SHUT_RDWR);
    fThread.join();
    close(fListener);
  }
  CannedHost(const CannedHost&) = delete;
  CannedHost& operator=(const CannedHost&) = delete;

  const std::string& address() const { return fAddress; }

private:
  void xServe() const {
    while (true) {
      const int client = accept4(fListener, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) {
        return;
      }
      xAnswer(client);
      close(client);
    }
  }

  void xAnswer(int client) const {
    std::string request;
    std::array<char, 4096> bytes{};
    while (request.find("\r\n\r\n") == std::string::npos) {
      const ssize_t size = recv(client, bytes.data(), bytes.size(), 0);
      if (size <= 0) {
        return;
      }
      request.append(bytes.data(), static_cast<std::size_t>(size));
    }
    const std::size_t begin = request.find(' ') + 1;
    const auto found = fAnswers.find(request.substr(begin, request.find(' ', begin) - begin));
    const std::string body = found != fAnswers.end() ? found->second : "{}";
    const std::string reply =
        std::string("HTTP/1.1 ") + (found != fAnswers.end() ? "200 OK" : "404 Not Found") +
        "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
        body;
    send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
  }

  const std::map<std::string, std::string> fAnswers;
  int fListener = -1;
  std::string fAddress;
  std::thread fThread;
};

} // namespace gk::test
