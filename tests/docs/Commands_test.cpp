#include "docs/Page.h"
#include "support/Program.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <regex>
#include <set>

// Runs what the README and the pages under docs/ tell people to type, from a copy of what ships,
// with gk on the path. docs/testing.md has the marks by which a block says how it is run.

namespace {

namespace fs = std::filesystem;
using gk::test::Block;
using gk::test::isShown;
using gk::test::OfferedCommand;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::ShownCommand;

const fs::path kRoot = GK_SOURCE_DIR;
constexpr const char* kDefaultAddress = "127.0.0.1:8090";

/// Marks of blocks that are not run.
const std::set<std::string> kNotRun = {"installs", "elsewhere"};
/// Languages of blocks that show a file, whose name follows.
const std::set<std::string> kShowFiles = {"jsonl", "cpp"};

std::vector<fs::path> pages() {
  std::vector<fs::path> found = {kRoot / "README.md", kRoot / "data" / "README.md"};
  for (const fs::directory_entry& entry : fs::directory_iterator(kRoot / "docs")) {
    if (entry.path().extension() == ".md") {
      found.push_back(entry.path());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

/// A folder as somebody has it who has got the sources and built them, and a shell in it.
class Desk {
public:
  Desk() {
    for (const char* shipped : {"data", "examples"}) {
      fs::copy(kRoot / shipped, fFolder.path() / shipped, fs::copy_options::recursive);
    }
    fs::create_directories(fFolder.path() / "build" / "release");
    fs::create_directories(fFolder.path() / "bin");
    const fs::path prefix = fs::path(GK_PROGRAM).parent_path().parent_path();
    for (const char* part : {"bin", "lib", "include"}) {
      link(prefix / part, std::string("build/release/") + part);
    }
    // Hosts of other tests run on the same machine, so nobody can count on the default address.
    gk::test::writeFile(fFolder.path() / "bin" / "gk",
                        "#!/bin/sh\n"
                        "case \"$*\" in\n"
                        "*listen*|*--speed*max*|*--keys*|*--lockstep*) ;;\n"
                        "run*) shift; set -- run --listen 127.0.0.1:0 \"$@\" ;;\n"
                        "esac\n"
                        "exec " GK_PROGRAM " \"$@\"\n");
    fs::permissions(fFolder.path() / "bin" / "gk", fs::perms::owner_all);
  }

  /// Runs a script to its end. Standard output and error come out as one, as on a terminal.
  ProgramResult run(const std::string& script) const {
    ProgramResult result = started("exec 2>&1\n" + script)->wait();
    if (!fAddress.empty()) {
      result.out = replaced(result.out, fAddress, kDefaultAddress);
    }
    return result;
  }

  /// Runs one command until it has said something, or has begun to write `file`, then interrupts
  /// it.
  ProgramResult runUntilInterrupted(const std::string& command,
                                    const std::string& file = {}) const {
    const std::unique_ptr<Program> program = started("exec " + command);
    const fs::path written = fFolder.path() / file;
    program->runUntil([&] {
      std::error_code ignored;
      return !program->outSoFar().empty() || (!file.empty() && fs::exists(written, ignored));
    });
    kill(program->pid(), SIGINT);
    return program->wait();
  }

  /// Lets a host run beside what follows, instead of the one before.
  void startHost(const std::string& command) {
    stopHost();
    fHost = started("exec " + command);
    const std::regex address(R"(http://(127\.0\.0\.1:\d+)/\s)");
    fHost->runUntil([&] {
      const std::string said = fHost->errSoFar();
      std::smatch found;
      const bool isThere = std::regex_search(said, found, address);
      if (isThere) {
        fAddress = found[1];
      }
      return isThere;
    });
  }

  /// Interrupts the host, if there is one, and returns its exit code.
  int stopHost() {
    if (fHost == nullptr) {
      return 0;
    }
    kill(fHost->pid(), SIGINT);
    const ProgramResult result = fHost->wait();
    fHost.reset();
    fAddress.clear();
    return result.code;
  }

private:
  void link(const fs::path& what, const std::string& name) const {
    fs::create_directory_symlink(what, fFolder.path() / name);
  }

  std::unique_ptr<Program> started(const std::string& script) const {
    const std::string text =
        fAddress.empty() ? script : replaced(script, kDefaultAddress, fAddress);
    // Whoever starts tests in the background of a script has them ignore Ctrl-C.
    std::vector<std::string> arguments = {"/usr/bin/env",
                                          "--default-signal=INT",
                                          "-i",
                                          "LANG=C.UTF-8",
                                          "HOME=" + fFolder.path().string(),
                                          "PATH=" + (fFolder.path() / "bin").string() +
                                              ":/usr/local/bin:/usr/bin:/bin"};
    if (!fAddress.empty()) {
      arguments.push_back("GK_HOST=" + fAddress);
    }
    arguments.insert(arguments.end(), {"bash", "-c", "set -e -u -o pipefail\n" + text});
    return std::make_unique<Program>(std::move(arguments), fFolder.path());
  }

  const gk::test::TemporaryFolder fFolder;
  std::unique_ptr<Program> fHost;
  std::string fAddress;
};

bool isCommands(const Block& block) {
  return block.is("sh") || block.is("console");
}

bool isRun(const Block& block) {
  return isCommands(block) &&
         std::none_of(kNotRun.begin(), kNotRun.end(),
                      [&](const std::string& mark) { return block.has(mark); });
}

/// The one command of a block that is to be interrupted.
std::string oneCommand(const Block& block) {
  EXPECT_EQ(block.lines.size(), 1U) << "line " << block.line << ": one command only";
  return block.lines.front();
}

void runConsole(const Desk& desk, const Block& block) {
  for (const ShownCommand& shown : shownCommandsOf(block)) {
    const ProgramResult result = desk.run(shown.command);
    EXPECT_TRUE(isShown(shown.output, gk::test::linesOf(result.out)))
        << "line " << block.line << ": " << shown.command << "\nis shown with\n"
        << joined(shown.output) << "and said\n"
        << result.out;
    const bool showsError =
        std::any_of(shown.output.begin(), shown.output.end(),
                    [](const std::string& line) { return line.starts_with("gk: "); });
    if (!showsError) {
      EXPECT_EQ(result.code, 0) << "line " << block.line << ": " << shown.command << "\n"
                                << result.out;
    }
  }
}

void run(Desk& desk, const Block& block) {
  if (block.is("console")) {
    runConsole(desk, block);
  } else if (block.has("host")) {
    desk.startHost(oneCommand(block));
  } else if (block.has("interrupted")) {
    const ProgramResult result = desk.runUntilInterrupted(oneCommand(block));
    EXPECT_THAT(result.code, testing::AnyOf(0, 128 + SIGINT))
        << "line " << block.line << ": " << result.err;
  } else {
    const ProgramResult result = desk.run(joined(block.lines));
    if (!block.has("judges")) {
      EXPECT_EQ(result.code, 0) << "line " << block.line << ": " << joined(block.lines)
                                << result.out;
    }
    EXPECT_LT(result.code, 126) << "line " << block.line << ": " << result.out;
  }
}

std::string testName(const testing::TestParamInfo<fs::path>& info) {
  std::string name = info.param.parent_path() == kRoot
                         ? info.param.stem().string()
                         : (info.param.parent_path().filename() / info.param.stem()).string();
  std::replace_if(
      name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

class DocsPage : public testing::TestWithParam<fs::path> {};

TEST_P(DocsPage, SaysWhatItsCommandsDo) {
  Desk desk;
  for (const Block& block : gk::test::blocksOf(GetParam())) {
    if (isRun(block)) {
      run(desk, block);
    }
  }
  EXPECT_EQ(desk.stopHost(), 0);
}

TEST_P(DocsPage, MarksEveryBlockOfCommands) {
  static const std::set<std::string> kLanguages = {"sh",   "console", "jsonl",  "cpp", "cmake",
                                                   "toml", "csv",     "python", "text"};
  static const std::set<std::string> kMarks = {"host", "interrupted", "judges", "installs",
                                               "elsewhere"};
  static const std::regex kCommand(R"(^(\$ |(gk|make|curl|cmake|ctest|npm|ssh) ).*)");
  for (const Block& block : gk::test::blocksOf(GetParam())) {
    const std::string place = "line " + std::to_string(block.line);
    if (!block.words.empty()) {
      EXPECT_TRUE(kLanguages.contains(block.words[0])) << place << ": " << block.words[0];
    }
    if (isCommands(block)) {
      for (std::size_t i = 1; i < block.words.size(); ++i) {
        EXPECT_TRUE(kMarks.contains(block.words[i])) << place << ": " << block.words[i];
      }
      continue;
    }
    for (const std::string& line : block.lines) {
      EXPECT_FALSE(std::regex_match(line, kCommand)) << place << " has commands: " << line;
    }
  }
}

TEST_P(DocsPage, ShowsFilesAsTheyAre) {
  for (const Block& block : gk::test::blocksOf(GetParam())) {
    if (block.words.size() == 2 && kShowFiles.contains(block.words[0])) {
      EXPECT_EQ(joined(block.lines), gk::test::readFile(kRoot / block.words[1]))
          << "line " << block.line;
    }
  }
}

TEST_P(DocsPage, NamesFilesThatAreThere) {
  for (const fs::path& file : gk::test::filesNamedBy(GetParam(), kRoot)) {
    // A class or a program is named without its file's ending.
    const std::vector<std::string> endings = {"", ".h", ".cpp"};
    EXPECT_TRUE(std::any_of(endings.begin(), endings.end(), [&](const std::string& ending) {
      return fs::exists(file.string() + ending);
    })) << file;
  }
}

/// Runs a command that the page offers to whoever has a host.
void runOffered(const Desk& desk, const OfferedCommand& offered) {
  static const std::regex kGoesOn(R"(gk (events|watch|record) (?!--count).*|gk events)");
  static const std::regex kFile(R"([a-z]+\.mcap)");
  // What these are for they are tried with elsewhere.
  static const std::regex kOtherShell("gk completion (zsh|fish)");
  // Its exit code is what it finds.
  const bool isJudge = offered.command.starts_with("gk doctor");
  const std::string place = "line " + std::to_string(offered.line) + ": " + offered.command + "\n";
  if (std::regex_match(offered.command, kGoesOn)) {
    std::smatch file;
    std::regex_search(offered.command, file, kFile);
    const ProgramResult result = desk.runUntilInterrupted(offered.command, file.str());
    EXPECT_THAT(result.code, testing::AnyOf(0, 128 + SIGINT)) << place << result.err;
  } else if (std::smatch script; std::regex_search(offered.command, script, kOtherShell)) {
    const ProgramResult result = desk.run(script.str());
    EXPECT_EQ(result.code, 0) << place << result.out;
  } else {
    const ProgramResult result = desk.run(offered.command);
    EXPECT_LT(result.code, isJudge ? 126 : 1) << place << result.out;
  }
}

TEST(DocsTables, OfferWhatCanBeDone) {
  Desk desk;
  desk.startHost("gk run --speed 10");
  std::size_t count = 0;
  for (const fs::path& page : pages()) {
    for (const OfferedCommand& offered : gk::test::offeredCommandsOf(page)) {
      SCOPED_TRACE(page);
      runOffered(desk, offered);
      ++count;
    }
  }
  EXPECT_GT(count, 20U);
  EXPECT_EQ(desk.stopHost(), 0);
}

INSTANTIATE_TEST_SUITE_P(Each, DocsPage, testing::ValuesIn(pages()), testName);

} // namespace
