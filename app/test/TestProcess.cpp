#include "app/test/TestProcess.h"

#include "app/session/FileTests.h"
#include "app/session/Process.h"
#include "app/session/Replay.h"
#include "formats/text/InputError.h"
#include "formats/text/LineReader.h"
#include "messages/json/Json.h"
#include "messages/json/JsonWriter.h"

#include <boost/json/object.hpp>
#include <boost/json/string.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace gk::app {

namespace {

/// Ends a process that a test has left behind, with all that it has started.
void endGroup(pid_t process) {
  ::kill(-process, SIGKILL);
  ::kill(process, SIGKILL);
}

/// What every forked process does first.
void becomeTest() {
  ::setpgid(0, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// The files of the libraries that are loaded when tests name no others. Those that cannot be
/// loaded are left out: each test says so itself.
std::vector<std::string> usualLibraries(const TestSettings& settings) {
  SessionOptions session;
  session.libraries = settings.libraries;
  const runtime::HostOptions host = hostOptions(session);
  std::vector<std::string> files;
  for (const std::string& name : host.libraries) {
    try {
      files.push_back(std::filesystem::absolute(runtime::findLibrary(name, host.libraryFolders)));
      runtime::checkLibrary(files.back());
    } catch (const runtime::LoadError&) {
      return {};
    }
  }
  return files;
}

void load(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    // Never closed: the handle of each test is a second one.
    ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  }
}

bool hasOneThread() {
  std::error_code error;
  const std::filesystem::directory_iterator threads("/proc/self/task", error);
  return !error && std::distance(begin(threads), end(threads)) == 1;
}

std::string wishesJson(const TestWishes& wishes) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject();
  json.key("file").text(wishes.file);
  json.key("line").unsignedInteger(wishes.line);
  json.key("exit").integer(wishes.exit);
  json.key("error").text(wishes.error);
  if (wishes.out) {
    json.key("stdout").text(*wishes.out);
  }
  json.endObject();
  return text + "\n";
}

void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t size = ::write(descriptor, text.data(), text.size());
    if (size <= 0) {
      return;
    }
    text.remove_prefix(static_cast<std::size_t>(size));
  }
}

std::string textAt(const boost::json::object& object, const char* name) {
  const boost::json::string& text = object.at(name).as_string();
  return {text.data(), text.size()};
}

} // namespace

void loadForTests(const TestSettings& settings) {
  const std::vector<std::string> libraries = usualLibraries(settings);
  std::fflush(nullptr);
  const pid_t process = ::fork();
  if (process < 0) {
    return;
  }
  if (process == 0) {
    becomeTest();
    // A library that hangs while it is loaded is no reason to wait.
    constexpr unsigned int patience = 10;
    ::signal(SIGALRM, SIG_DFL);
    ::alarm(patience);
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::dup2(nowhere, STDOUT_FILENO);
    ::dup2(nowhere, STDERR_FILENO);
    load(libraries);
    ::_exit(hasOneThread() ? 0 : 1);
  }
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    load(libraries);
  }
}

TestProcess::TestProcess(const TestCase& test, const TestSettings& settings, Keep keep)
    : fDeadline(fStart + std::chrono::duration_cast<Steady::duration>(settings.timeout)) {
  if (keep.golden) {
    fGolden.emplace(Scratch::Place::Disk);
  }
  if (keep.all) {
    fAll.emplace(Scratch::Place::Disk);
  }
  // What waits in buffers would be written twice.
  std::fflush(nullptr);
  fPid = ::fork();
  if (fPid < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot start a test");
  }
  if (fPid == 0) {
    xRun(test, settings);
  }
  ::setpgid(fPid, fPid);
}

TestProcess::~TestProcess() {
  if (!fHasEnded) {
    endGroup(fPid);
    ::waitpid(fPid, nullptr, 0);
  }
}

void TestProcess::xRun(const TestCase& test, const TestSettings& settings) const {
  becomeTest();
  ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
  ::dup2(fOut.descriptor(), STDOUT_FILENO);
  ::dup2(fErr.descriptor(), STDERR_FILENO);
  int code = kFailure;
  std::string told;
  try {
    SessionOptions session;
    session.files = {test.input};
    session.isQuiet = true;
    session.libraries = settings.libraries;
    session.settings = settings.settings;
    const FileTests tests = readFileTests(session.files, false);
    TestWishes wishes;
    if (tests.options) {
      wishes = {tests.options->file, tests.options->line, tests.options->exit, tests.options->error,
                tests.options->out};
    }
    writeAll(fTold.descriptor(), wishesJson(wishes));
    const std::string only = applyFileOptions(tests, session);
    SessionView view;
    if (fGolden) {
      view.extra.push_back({fGolden->descriptor(), only.empty() ? formats::LineKinds::all()
                                                                : formats::LineKinds::parse(only)});
    }
    if (fAll) {
      view.extra.push_back({fAll->descriptor(), formats::LineKinds::all()});
    }
    view.judge.onVerdict = [&told](const runtime::Verdict& verdict) {
      told += expectationJson({verdict.file, verdict.line, verdict.holds, verdict.text,
                               verdict.secondsLeft, verdict.margin, verdict.time},
                              true) +
              "\n";
    };
    code = runReplay(session, tests, std::move(view), false);
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
    code = kBadInput;
  } catch (const std::exception& error) {
    fmt::print(stderr, "gk: {}\n", error.what());
  }
  writeAll(fTold.descriptor(), told);
  code = finishStandardOutput(code);
  std::fflush(stderr);
  // What the process was forked from has its own end.
  ::_exit(code);
}

void TestProcess::end() {
  fIsTimeout = true;
  endGroup(fPid);
}

void TestProcess::ended(int status) {
  fHasEnded = true;
  fStatus = status;
  fSeconds = std::chrono::duration<double>(Steady::now() - fStart).count();
  ::kill(-fPid, SIGKILL); // What it has left behind.
}

int TestProcess::signal() const {
  return WIFSIGNALED(fStatus) ? WTERMSIG(fStatus) : 0;
}

int TestProcess::code() const {
  return WIFEXITED(fStatus) ? WEXITSTATUS(fStatus) : -1;
}

TestWishes TestProcess::wishes() const {
  TestWishes wishes;
  formats::LineReader reader(fTold.path());
  if (const std::optional<std::string_view> line = reader.next()) {
    const boost::json::value value = messages::parseJson(*line);
    const boost::json::object& object = value.as_object();
    wishes.file = textAt(object, "file");
    wishes.line = static_cast<std::size_t>(object.at("line").as_int64());
    wishes.exit = static_cast<int>(object.at("exit").as_int64());
    wishes.error = textAt(object, "error");
    if (object.contains("stdout")) {
      wishes.out = textAt(object, "stdout");
    }
  }
  return wishes;
}

std::vector<ExpectationResult> TestProcess::expectations() const {
  std::vector<ExpectationResult> results;
  formats::LineReader reader(fTold.path());
  reader.next();
  while (const std::optional<std::string_view> line = reader.next()) {
    const boost::json::value value = messages::parseJson(*line);
    const boost::json::object& object = value.as_object();
    ExpectationResult result;
    result.file = textAt(object, "file");
    result.line = static_cast<std::size_t>(object.at("line").as_int64());
    result.time = object.at("t").as_int64();
    result.holds = object.at("holds").as_bool();
    result.text = textAt(object, "text");
    if (const boost::json::value* left = object.if_contains("margin_s")) {
      result.secondsLeft = left->to_number<double>();
    }
    if (const boost::json::value* margin = object.if_contains("margin")) {
      result.margin = margin->to_number<double>();
    }
    results.push_back(std::move(result));
  }
  return results;
}

} // namespace gk::app
