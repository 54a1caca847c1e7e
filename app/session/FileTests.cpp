#include "app/session/FileTests.h"

#include "app/session/Libraries.h"
#include "formats/recording/TestFile.h"
#include "formats/text/InputError.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <functional>
#include <iterator>
#include <system_error>
#include <utility>

namespace gk::app {

namespace {

void add(FileTests& tests, formats::TestFile file) {
  tests.expectations.insert(tests.expectations.end(),
                            std::make_move_iterator(file.expectations.begin()),
                            std::make_move_iterator(file.expectations.end()));
  if (file.options && tests.options) {
    throw formats::InputError(file.options->file, file.options->line,
                              "a run has one line of \"options\", and there is one in " +
                                  tests.options->file);
  }
  if (file.options) {
    tests.options = std::move(file.options);
  }
}

/// Values that are given before others of their kind.
void addBefore(std::vector<std::string>& given, std::vector<std::string> values) {
  values.insert(values.end(), given.begin(), given.end());
  given = std::move(values);
}

/// A library that is named by a path lies where it does for the file that names it.
std::string besideFile(const std::string& file, const std::string& library) {
  const std::string mark = library.starts_with('+') ? "+" : "";
  const std::string name = library.substr(mark.size());
  return runtime::isLibraryPath(name)
             ? mark + (std::filesystem::path(file).parent_path() / name).string()
             : library;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  for (std::size_t comma = 0; comma != std::string::npos; begin = comma + 1) {
    comma = text.find(',', begin);
    parts.push_back(text.substr(begin, comma - begin));
  }
  return parts;
}

/// The options of a file, one by one.
class FileOptionReader {
public:
  FileOptionReader(const formats::FileOptions& options) : fOptions(options) {}

  /// Raises `FormatError`.
  void read() {
    for (std::size_t i = 0; i < fOptions.words.size(); ++i) {
      std::string name = fOptions.words[i];
      std::optional<std::string> value;
      if (const std::size_t equals = name.find('='); equals != std::string::npos) {
        value = name.substr(equals + 1);
        name.resize(equals);
      } else if (i + 1 < fOptions.words.size()) {
        value = fOptions.words[i + 1];
      }
      const auto take = xTakerOf(name);
      if (!value || value->empty()) {
        throw messages::FormatError(fmt::format("\"options\": {} takes a value", name));
      }
      if (name.size() == fOptions.words[i].size()) {
        ++i;
      }
      if (const std::string wrong = take(*value); !wrong.empty()) {
        throw messages::FormatError(fmt::format("\"options\": {}: {}", name, wrong));
      }
    }
  }

  std::vector<std::string> subscribe;
  std::vector<std::string> without;
  std::vector<std::string> sample;
  std::vector<std::string> settings;
  std::vector<std::string> libraries;
  std::optional<std::int64_t> epoch;
  std::optional<double> until;
  std::string only;

private:
  /// Takes a value; returns what is wrong with it.
  using Taker = std::function<std::string(const std::string& value)>;

  static Taker xAppend(std::vector<std::string>& values,
                       std::string (*check)(const std::string&) = nullptr) {
    return [&values, check](const std::string& value) {
      values.push_back(value);
      return check != nullptr ? check(value) : std::string();
    };
  }

  Taker xTakerOf(const std::string& name) {
    if (name == "--subscribe") {
      return xAppend(subscribe);
    }
    if (name == "--without") {
      return xAppend(without, checkService);
    }
    if (name == "--setting") {
      return xAppend(settings, checkSetting);
    }
    if (name == "--library") {
      return [this](const std::string& value) {
        libraries.push_back(besideFile(fOptions.file, value));
        return checkLibraryName(value);
      };
    }
    if (name == "--sample") {
      return [this](const std::string& value) {
        const std::vector<std::string> keys = split(value);
        sample.insert(sample.end(), keys.begin(), keys.end());
        return std::string();
      };
    }
    if (name == "--only") {
      return [this](const std::string& value) {
        only = value;
        return checkKinds(value);
      };
    }
    if (name == "--epoch") {
      return [this](const std::string& value) {
        const char* last = value.data() + value.size();
        const auto [end, error] = std::from_chars(value.data(), last, epoch.emplace());
        return error == std::errc() && end == last ? std::string() : value + " is no whole number";
      };
    }
    if (name == "--until") {
      return [this](const std::string& value) {
        until = messages::parseDouble(value);
        return until && *until >= 0.0 && messages::toMicros(*until) ? std::string()
                                                                    : value + " is no time";
      };
    }
    throw messages::FormatError(fmt::format(
        "\"options\": {} is none that a file can have: --subscribe, --without, --epoch, --until, "
        "--sample, --setting, --library, --only",
        name));
  }

  const formats::FileOptions& fOptions;
};

} // namespace

FileTests readFileTests(const std::vector<std::string>& files, bool isLeftOut) {
  FileTests tests;
  for (const std::string& file : files) {
    if (formats::isScenarioName(file) && formats::canBeReadTwice(file)) {
      add(tests, formats::readTestFile(file, false));
    }
    const std::string companion = formats::companionOf(file);
    if (isLeftOut || !formats::isInputName(file) || !formats::canBeReadTwice(companion) ||
        std::ranges::find(tests.companions, companion) != tests.companions.end()) {
      continue;
    }
    formats::TestFile beside = formats::readTestFile(companion, true);
    tests.companions.push_back(companion);
    if (beside.hasEnd) {
      tests.ends.push_back(companion);
    }
    add(tests, std::move(beside));
  }
  if (isLeftOut) {
    tests.expectations.clear();
  }
  return tests;
}

std::string applyFileOptions(const FileTests& tests, SessionOptions& session) {
  if (!tests.options) {
    return {};
  }
  FileOptionReader file(*tests.options);
  try {
    file.read();
  } catch (const messages::FormatError& error) {
    throw formats::InputError(tests.options->file, tests.options->line, error.what());
  }
  addBefore(session.subscribe, std::move(file.subscribe));
  addBefore(session.without, std::move(file.without));
  addBefore(session.sample, std::move(file.sample));
  addBefore(session.settings, std::move(file.settings));
  session.libraries = addLibraries(file.libraries, session.libraries);
  if (file.epoch && !session.isEpochGiven) {
    session.epoch = *file.epoch;
  }
  if (file.until && !session.until) {
    session.until = file.until;
  }
  return file.only;
}

} // namespace gk::app
