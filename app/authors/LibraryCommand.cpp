#include "app/authors/AuthorCommands.h"
#include "app/session/Complaints.h"
#include "runtime/host/LibraryNote.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

namespace gk::app {

namespace {

int check(const std::string& file) {
  std::error_code ignored;
  if (!std::filesystem::exists(file, ignored)) {
    complain("there is no file " + file);
    return kBadInput;
  }
  try {
    const runtime::LibraryNote note = runtime::checkLibrary(file);
    fmt::print("{} fits: platform {} (built with {}), {}\n", file, note.abi, note.version,
               note.cxxLibrary);
    return kSuccess;
  } catch (const runtime::LoadError& error) {
    complain(error.what());
    return kFailure;
  }
}

} // namespace

void addLibraryCommand(const Command& program) {
  const Command library = program.subcommand("library", "Look at module libraries");
  const Command command =
      library.subcommand("check", "Tell whether a module library fits this program, without "
                                  "loading it");
  auto file = std::make_shared<std::string>();
  command.option("FILE", *file, "The library, such as build/libmine.so").required().shows("");
  command.does([file] { return check(*file); });
}

} // namespace gk::app
