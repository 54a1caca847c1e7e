#include "app/authors/AuthorCommands.h"
#include "app/authors/ModuleTemplate.h"
#include "app/session/Complaints.h"
#include "app/session/Libraries.h"
#include "gk/GKVersion.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace gk::app {

namespace {

/// What a class cannot be called although it looks like a name: words of C++, the namespaces around
/// it, and targets that every project has.
constexpr std::array<std::string_view, 107> kTaken = {
    "alignas",       "alignof",     "all",        "and",          "and_eq",    "asm",
    "auto",          "bitand",      "bitor",      "bool",         "boost",     "break",
    "case",          "catch",       "char",       "char16_t",     "char32_t",  "char8_t",
    "class",         "clean",       "co_await",   "co_return",    "co_yield",  "compl",
    "concept",       "const",       "const_cast", "consteval",    "constexpr", "constinit",
    "continue",      "decltype",    "default",    "delete",       "do",        "double",
    "dynamic_cast",  "else",        "enum",       "explicit",     "export",    "extern",
    "false",         "float",       "for",        "friend",       "gk",        "GK",
    "goto",          "help",        "if",         "inline",       "install",   "int",
    "long",          "main",        "mutable",    "namespace",    "new",       "noexcept",
    "not",           "not_eq",      "nullptr",    "operator",     "or",        "or_eq",
    "package",       "private",     "protected",  "public",       "register",  "reinterpret_cast",
    "requires",      "return",      "short",      "signed",       "sizeof",    "static",
    "static_assert", "static_cast", "std",        "struct",       "switch",    "template",
    "test",          "testing",     "this",       "thread_local", "throw",     "true",
    "try",           "typedef",     "typeid",     "typename",     "union",     "unsigned",
    "using",         "virtual",     "void",       "volatile",     "wchar_t",   "while",
    "xor",           "xor_eq",      "zu",         "linux",        "unix"};

/// What is wrong with a module's name; empty for nothing.
std::string checkName(const std::string& name) {
  const auto isLetter = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
  };
  const auto isPart = [&isLetter](char c) { return isLetter(c) || (c >= '0' && c <= '9'); };
  if (name.empty() || !isLetter(name.front()) || !std::ranges::all_of(name, isPart)) {
    return name + " is no identifier, such as GKMine";
  }
  return std::ranges::find(kTaken, name) == kTaken.end() ? std::string()
                                                         : name + " means something else already";
}

std::string replaced(std::string text, std::string_view word, std::string_view by) {
  for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += by.size()) {
    text.replace(at, word.size(), by);
  }
  return text;
}

/// Where CMake looks for the platform besides its usual places; empty when it is there.
std::string platformHint() {
  const std::filesystem::path root = rootFolder();
  if (root.empty() || root == "/usr" || root == "/usr/local") {
    return {};
  }
  return "\n             # Where gk was that made this. CMAKE_PREFIX_PATH names other places.\n"
         "             HINTS \"" +
         root.string() + "\"";
}

int newModule(const std::string& name, std::filesystem::path folder) {
  std::error_code error;
  if (std::filesystem::exists(folder, error) && (!std::filesystem::is_directory(folder, error) ||
                                                 !std::filesystem::is_empty(folder, error))) {
    complain(folder.string() + " is there already, and not empty");
    return kFailure;
  }
  const std::string hint = platformHint();
  for (const TemplateFile& file : moduleTemplate()) {
    std::string text = replaced(std::string(file.text), "MODULE_NAME", name);
    text = replaced(std::move(text), "PLATFORM_ABI", GK_PLATFORM_ABI);
    text = replaced(std::move(text), "PLATFORM_HINT", hint);
    const std::filesystem::path path =
        folder / replaced(std::string(file.name), "MODULE_NAME", name);
    std::filesystem::create_directories(path.parent_path(), error);
    std::ofstream output(path, std::ios::binary);
    output << text;
    if (!output.flush()) {
      complain("cannot write " + path.string());
      return kFailure;
    }
  }
  const std::string there = folder.string();
  fmt::print("{} is in {}. Try it:\n"
             "  cd {}\n"
             "  cmake -B build && cmake --build build && ctest --test-dir build\n"
             "  gk run --library +build/lib{}.so\n",
             name, there, there, name);
  return kSuccess;
}

} // namespace

void addNewCommand(const Command& program) {
  const Command command = program.subcommand("new", "Begin a project of your own");
  const Command module =
      command.subcommand("module", "Write a project with one module, its build and its tests");
  auto name = std::make_shared<std::string>();
  auto folder = std::make_shared<std::string>();
  module.option("NAME", *name, "The module, such as GKMine")
      .required()
      .checked(checkName)
      .shows("");
  module.option("FOLDER", *folder, "Where; ./NAME when absent").shows("");
  module.does([name, folder] { return newModule(*name, folder->empty() ? *name : *folder); });
}

} // namespace gk::app
