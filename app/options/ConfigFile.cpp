#include "app/options/ConfigFile.h"

#include "formats/text/NearestNames.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <fstream>
#include <string_view>
#include <utility>

namespace gk::app {

namespace {

constexpr const char* kSettingsSection = "settings";
constexpr const char* kSettingOption = "--setting";
constexpr const char* kLibraryOption = "--library";
constexpr const char* kAllOptionsOf = "run";

[[noreturn]] void refuse(const std::string& file, const std::string& why) {
  throw CLI::ValidationError(file + ": " + why, CLI::ExitCodes::ValidationError);
}

/// The words that are options: not those behind "--".
std::vector<std::string> optionsIn(const std::vector<std::string>& words) {
  return {words.begin(), std::ranges::find(words, "--")};
}

/// The values that an option has on a command line.
std::vector<std::string> valuesOf(const std::string& option,
                                  const std::vector<std::string>& words) {
  std::vector<std::string> values;
  for (auto word = words.begin(); word != words.end(); ++word) {
    if (word->starts_with(option + "=")) {
      values.push_back(word->substr(option.size() + 1));
    } else if (*word == option && word + 1 != words.end()) {
      values.push_back(*(word + 1));
    }
  }
  return values;
}

/// Whether an option stands on a command line, by any of its names.
bool isGiven(const CLI::Option& option, const std::vector<std::string>& words) {
  return std::ranges::any_of(words, [&option](const std::string& word) {
    const bool isLong = std::ranges::any_of(option.get_lnames(), [&word](const std::string& name) {
      return word == "--" + name || word.starts_with("--" + name + "=");
    });
    return isLong || std::ranges::any_of(option.get_snames(), [&word](const std::string& name) {
             return word.starts_with("-" + name);
           });
  });
}

/// One option that adds to what the file says.
bool isOnlyAdding(const std::vector<std::string>& words) {
  return std::ranges::all_of(valuesOf(kLibraryOption, words),
                             [](const std::string& library) { return library.starts_with('+'); });
}

/// The names of its options that may stand in a file.
std::vector<std::string> namesOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      if (name != "help" && "--" + name != kConfigOption) {
        names.push_back(name);
      }
    }
  }
  return names;
}

/// What a file says, as words in front of the others.
class ConfigReader {
public:
  ConfigReader(const CLI::App& program, const CLI::App& command, std::string file)
      : fCommand(command), fKnown(namesOf(command)),
        fAll(namesOf(*program.get_subcommand(kAllOptionsOf))), fFile(std::move(file)) {}

  /// `given`: what stands on the command line. Raises `CLI::ParseError`.
  void read(const std::vector<std::string>& given) {
    std::ifstream input(fFile);
    if (!input) {
      refuse(fFile, "cannot be read");
    }
    for (const CLI::ConfigItem& item : CLI::ConfigTOML().from_config(input)) {
      if (item.name == "--" || item.name == "++") {
        continue; // ends and beginnings of sections
      }
      if (item.parents.empty()) {
        xTake(item, given);
      } else if (item.parents.front() == kSettingsSection) {
        xTakeSetting(item);
      } else {
        refuse(fFile, "there is no section [" + item.parents.front() +
                          "]; options come first, and then [settings]");
      }
    }
  }

  std::vector<std::string> words;
  std::vector<std::string> names;

private:
  void xTake(const CLI::ConfigItem& item, const std::vector<std::string>& given) {
    if (std::ranges::find(fAll, item.name) == fAll.end() &&
        std::ranges::find(fKnown, item.name) == fKnown.end()) {
      refuse(fFile, "gk run has no option " + item.name +
                        formats::didYouMean(formats::nearestNames(item.name, fAll)));
    }
    const std::string name = "--" + item.name;
    const CLI::Option* option = fCommand.get_option_no_throw(name);
    if (option == nullptr || (isGiven(*option, given) && name != kSettingOption &&
                              !(name == kLibraryOption && isOnlyAdding(given)))) {
      return;
    }
    names.push_back(name);
    const bool isFlag = option->get_expected_min() == 0;
    for (const std::string& value : item.inputs) {
      if (!isFlag || value == "true") {
        words.push_back(name);
        words.back().append(isFlag ? "" : "=" + value);
      } else if (value != "false") {
        refuse(fFile, item.name + ": " + value + " is none of true, false");
      }
    }
  }

  void xTakeSetting(const CLI::ConfigItem& item) {
    std::string key;
    for (auto part = item.parents.begin() + 1; part != item.parents.end(); ++part) {
      key += *part + "/";
    }
    std::string value = item.inputs.empty() ? "" : item.inputs.front();
    if (item.inputs.size() > 1) {
      value = "[";
      for (const std::string& element : item.inputs) {
        value += (value.size() > 1 ? "," : "") + element;
      }
      value += "]";
    }
    words.push_back(std::string(kSettingOption) + "=" + key + item.name + "=" + value);
  }

  const CLI::App& fCommand;
  const std::vector<std::string> fKnown;
  const std::vector<std::string> fAll;
  const std::string fFile;
};

} // namespace

ConfiguredLine configured(const CLI::App& program, const CLI::App& command,
                          std::vector<std::string> words) {
  ConfiguredLine line;
  const std::vector<std::string> given = optionsIn(words);
  const std::vector<std::string> files = command.get_option_no_throw(kConfigOption) != nullptr
                                             ? valuesOf(kConfigOption, given)
                                             : std::vector<std::string>();
  if (!files.empty()) {
    line.file = files.back();
    ConfigReader reader(program, command, line.file);
    reader.read(given);
    const auto behind = std::ranges::find(words, command.get_name());
    words.insert(behind == words.end() ? words.end() : behind + 1, reader.words.begin(),
                 reader.words.end());
    line.fromFile = std::move(reader.names);
  }
  line.words = std::move(words);
  return line;
}

} // namespace gk::app
