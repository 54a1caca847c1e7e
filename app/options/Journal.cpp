#include "app/options/Journal.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace gk::app {

bool isJournal() {
  static const bool isThere = [] {
    const char* named = std::getenv("JOURNAL_STREAM");
    struct stat stream {};
    return named != nullptr && fstat(STDERR_FILENO, &stream) == 0 &&
           fmt::format("{}:{}", stream.st_dev, stream.st_ino) == named;
  }();
  return isThere;
}

std::string_view journalLevel(Severity severity) {
  static constexpr std::array<std::string_view, 8> kLevels{"<0>", "<1>", "<2>", "<3>",
                                                           "<4>", "<5>", "<6>", "<7>"};
  return isJournal() ? kLevels.at(static_cast<std::size_t>(severity)) : std::string_view();
}

} // namespace gk::app
