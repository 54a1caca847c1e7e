#include "formats/recording/TestFile.h"

#include "formats/lines/ScenarioLine.h"
#include "formats/recording/TimeOrder.h"
#include "formats/text/LineReader.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace gk::formats {

namespace {

constexpr std::string_view kCompanion = ".expect.jsonl";
constexpr std::string_view kGolden = ".expected.jsonl";
/// The longest first.
constexpr std::array<std::string_view, 5> kEndings{".jsonl.gz", ".csv.gz", ".jsonl", ".csv",
                                                   ".mcap"};

std::string_view endingOf(std::string_view path) {
  const auto found =
      std::ranges::find_if(kEndings, [&](auto ending) { return path.ends_with(ending); });
  return found == kEndings.end() ? std::string_view() : *found;
}

std::string besideInput(std::string_view input, std::string_view ending) {
  input.remove_suffix(endingOf(input).size());
  return std::string(input) + std::string(ending);
}

/// Takes a line over. Raises `FormatError`.
void take(TestFile& file, TestLine line, TimeOrder& order, const LineReader& reader) {
  const std::optional<GK::GKMicros> time =
      line.time ? std::optional(order.take(*line.time)) : std::nullopt;
  if (auto* expectation = std::get_if<Expectation>(&line.what)) {
    expectation->file = reader.path();
    expectation->line = reader.line();
    expectation->time = time;
    file.expectations.push_back(std::move(*expectation));
  } else if (auto* options = std::get_if<FileOptions>(&line.what)) {
    options->file = reader.path();
    options->line = reader.line();
    file.options = std::move(*options);
  } else {
    file.hasEnd = true;
  }
}

} // namespace

TestFile readTestFile(const std::string& path, bool isCompanion) {
  LineReader reader(path);
  TestFile file;
  TimeOrder order;
  bool isFirst = true;
  while (const std::optional<std::string_view> text = reader.next()) {
    if (isScenarioComment(*text)) {
      continue;
    }
    const bool isFirstLine = std::exchange(isFirst, false);
    if (!isCompanion && !mayBeTestLine(*text)) {
      continue;
    }
    try {
      std::optional<TestLine> line = readTestLine(*text);
      if (!line && isCompanion) {
        throw messages::FormatError(kNoExpectation);
      }
      if (line && std::holds_alternative<FileOptions>(line->what) && !isFirstLine) {
        throw messages::FormatError(kLateOptions);
      }
      if (line) {
        take(file, *std::move(line), order, reader);
      }
    } catch (const messages::FormatError& error) {
      // All other lines of a scenario are told of when it is their turn.
      if (isCompanion || isExpectation(*text)) {
        throw reader.error(error.what());
      }
    }
  }
  return file;
}

bool hasExpectations(const std::string& path) {
  try {
    LineReader reader(path);
    while (const std::optional<std::string_view> text = reader.next()) {
      if (!isScenarioComment(*text) && isExpectation(*text)) {
        return true;
      }
    }
  } catch (const InputError&) {
    return false;
  }
  return false;
}

bool canBeReadTwice(const std::string& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error);
}

std::string companionOf(const std::string& input) {
  return besideInput(input, kCompanion);
}

std::string goldenOf(const std::string& input) {
  return besideInput(input, kGolden);
}

bool isBesideInputs(const std::string& path) {
  return path.ends_with(kCompanion) || path.ends_with(kGolden);
}

bool isInputName(const std::string& path) {
  return !endingOf(path).empty() && !isBesideInputs(path);
}

bool isScenarioName(const std::string& path) {
  return isInputName(path) && (path.ends_with(".jsonl") || path.ends_with(".jsonl.gz"));
}

} // namespace gk::formats
