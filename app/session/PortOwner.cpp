#include "app/session/PortOwner.h"

#include "formats/text/Printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <system_error>

namespace gk::app {

namespace {

namespace fs = std::filesystem;

/// Longest command line that is shown.
constexpr std::size_t kMostShown = 60;

/// The sockets that listen at a port, by the names of their descriptors: "socket:[4711]".
std::set<std::string> listenersAt(std::uint16_t port) {
  constexpr const char* kListens = "0A";
  const std::string place = fmt::format(":{:04X}", port);
  std::set<std::string> sockets;
  for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::ifstream rows(table);
    for (std::string row; std::getline(rows, row);) {
      std::istringstream fields(row);
      std::string number;
      std::string local;
      std::string remote;
      std::string state;
      std::string skipped;
      std::string inode;
      fields >> number >> local >> remote >> state;
      // Queues, timer, retransmissions, user and timeout.
      for (int i = 0; i < 5; ++i) {
        fields >> skipped;
      }
      fields >> inode;
      if (state == kListens && local.ends_with(place)) {
        sockets.insert("socket:[" + inode + "]");
      }
    }
  }
  return sockets;
}

bool hasOneOf(const fs::path& process, const std::set<std::string>& sockets) {
  std::error_code error;
  for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code gone;
    if (sockets.contains(fs::read_symlink(entry->path(), gone).string())) {
      return true;
    }
  }
  return false;
}

/// "gk run night.csv", without the folders of the program.
std::string commandOf(const fs::path& process) {
  std::ifstream file(process / "cmdline", std::ios::binary);
  std::string line{std::istreambuf_iterator<char>(file), {}};
  while (!line.empty() && line.back() == '\0') {
    line.pop_back();
  }
  const std::size_t end = std::min(line.find('\0'), line.size());
  const std::string program = fs::path(line.substr(0, end)).filename();
  std::string text = program + line.substr(end);
  std::ranges::replace(text, '\0', ' ');
  if (text.size() > kMostShown) {
    text.resize(kMostShown);
    text += "...";
  }
  return formats::printable(text);
}

} // namespace

std::string ownerOfPort(std::uint16_t port) {
  const std::set<std::string> sockets = listenersAt(port);
  if (sockets.empty()) {
    return {};
  }
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    const bool isProcess = std::ranges::all_of(
        name, [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; });
    if (isProcess && hasOneOf(entry->path(), sockets)) {
      return fmt::format("{} (process {})", commandOf(entry->path()), name);
    }
  }
  return {};
}

} // namespace gk::app
