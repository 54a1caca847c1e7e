#include "app/test/Compare.h"

#include "formats/files/OutputFile.h"
#include "formats/text/InputError.h"
#include "formats/text/LineReader.h"
#include "formats/text/Printable.h"
#include "messages/text/Numbers.h"

#include <array>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace gk::app {

namespace {

constexpr std::size_t kBlock = std::size_t{64} * 1024;

/// A line for people: no longer than a few of a terminal.
std::string shown(std::string_view line) {
  constexpr std::size_t most = 300;
  std::string text = formats::printable(line.substr(0, most));
  return line.size() > most ? text + "..." : text;
}

/// When a line of output tells of something, in microseconds; nothing when it does not say.
std::optional<GK::GKMicros> timeOfLine(std::string_view line) {
  constexpr std::string_view beginning = R"({"t":)";
  if (!line.starts_with(beginning)) {
    return std::nullopt;
  }
  line.remove_prefix(beginning.size());
  const std::optional<double> seconds = messages::parseDouble(line.substr(0, line.find(',')));
  return seconds ? messages::toMicros(*seconds) : std::nullopt;
}

/// Lines that tell people little about a moment.
bool isBookkeeping(std::string_view line) {
  for (const std::string_view kind :
       {R"("kind":"declare")", R"("kind":"data")", R"("kind":"sample")"}) {
    if (line.find(kind) != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

} // namespace

bool isSameFile(const std::string& one, const std::string& other) {
  std::ifstream first(one, std::ios::binary);
  std::ifstream second(other, std::ios::binary);
  std::array<char, kBlock> left{};
  std::array<char, kBlock> right{};
  while (first && second) {
    first.read(left.data(), left.size());
    second.read(right.data(), right.size());
    const auto size = static_cast<std::size_t>(first.gcount());
    if (first.gcount() != second.gcount() ||
        std::string_view(left.data(), size) != std::string_view(right.data(), size)) {
      return false;
    }
  }
  return first.eof() && second.eof();
}

Complaint firstDifference(const std::string& expected, const std::string& actual,
                          const std::string& file, const std::string& what) {
  constexpr std::size_t before = 4;
  constexpr int after = 3;
  Complaint complaint{file, 0, what + " differs", {}};
  try {
    formats::LineReader left(expected);
    formats::LineReader right(actual);
    std::deque<std::string> same;
    while (true) {
      const std::optional<std::string_view> one = left.next();
      const std::optional<std::string_view> other = right.next();
      if (!one && !other) {
        complaint.text += " in the ends of its lines";
        return complaint;
      }
      if (one == other) {
        same.push_back("  " + shown(*one));
        if (same.size() > before) {
          same.pop_front();
        }
        continue;
      }
      complaint.line = one ? left.line() : right.line();
      complaint.text = what + ": expected " + (one ? shown(*one) : "no more") + ", but " +
                       (other ? shown(*other) : "there was no more");
      complaint.context.assign(same.begin(), same.end());
      std::optional<std::string_view> line = one;
      for (int i = 0; i < after && line; ++i, line = left.next()) {
        complaint.context.push_back("- " + shown(*line));
      }
      line = other;
      for (int i = 0; i < after && line; ++i, line = right.next()) {
        complaint.context.push_back("+ " + shown(*line));
      }
      return complaint;
    }
  } catch (const formats::InputError& error) {
    complaint.text += " (" + error.getText() + ")";
  }
  return complaint;
}

std::vector<std::string> linesAround(const std::string& output, std::int64_t time) {
  constexpr std::size_t half = 5;
  std::deque<std::string> lines;
  std::size_t after = 0;
  try {
    formats::LineReader reader(output);
    while (const std::optional<std::string_view> line = reader.next()) {
      if (isBookkeeping(*line)) {
        continue;
      }
      const std::optional<GK::GKMicros> at = timeOfLine(*line);
      if ((after > 0 || (at && *at > time)) && ++after > half) {
        break;
      }
      lines.push_back(shown(*line));
      if (lines.size() > 2 * half) {
        lines.pop_front();
      }
    }
  } catch (const formats::InputError&) {
    return {lines.begin(), lines.end()}; // A line that is too long to be looked at.
  }
  return {lines.begin(), lines.end()};
}

void replaceFile(const std::string& from, const std::string& to) {
  formats::OutputFile file(to);
  std::ifstream source(from, std::ios::binary);
  std::array<char, kBlock> block{};
  while (source) {
    source.read(block.data(), block.size());
    file.write({block.data(), static_cast<std::size_t>(source.gcount())});
  }
  file.appear();
}

void leaveBeside(const std::string& output, const std::string& golden) {
  try {
    replaceFile(output, golden + ".new");
  } catch (const formats::OutputError&) { // NOLINT(bugprone-empty-catch): told otherwise anyway
  }
}

void removeBeside(const std::string& golden) {
  std::error_code ignored;
  std::filesystem::remove(golden + ".new", ignored);
}

} // namespace gk::app
