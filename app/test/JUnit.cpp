#include "app/test/JUnit.h"

#include "formats/files/OutputFile.h"
#include "messages/text/Utf8.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <array>
#include <ctime>
#include <unistd.h>

namespace gk::app {

namespace {

std::string hostName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

/// U+FFFE and U+FFFF are characters of UTF-8 and none of XML.
bool isNoCharacter(std::string_view letter) {
  return letter == "\xEF\xBF\xBE" || letter == "\xEF\xBF\xBF";
}

/// "folder.name" of a test, as readers of such files group them.
std::string className(const std::string& test) {
  const std::size_t slash = test.find_last_of('/');
  return slash == std::string::npos ? "gk" : test.substr(0, slash);
}

std::string testCase(const TestResult& result) {
  const Complaint none;
  const Complaint& first = result.complaints.empty() ? none : result.complaints.front();
  std::string text =
      fmt::format(R"(    <testcase classname="{}" name="{}" time="{:.6f}" file="{}"{})",
                  xmlText(className(result.test)), xmlText(result.test), result.seconds,
                  xmlText(first.file.empty() ? result.test : first.file),
                  first.line > 0 ? fmt::format(R"( line="{}")", first.line) : "");
  if (result.hasPassed()) {
    return text + "/>\n";
  }
  const char* element = result.status == TestResult::Status::Failed ? "failure" : "error";
  text +=
      fmt::format(">\n      <{} message=\"{}\" type=\"{}\">{}</{}>\n", element, xmlText(first.text),
                  statusName(result.status), xmlText(result.complaintText()), element);
  if (!result.out.empty()) {
    text += fmt::format("      <system-out>{}</system-out>\n", xmlText(result.out));
  }
  if (!result.err.empty()) {
    text += fmt::format("      <system-err>{}</system-err>\n", xmlText(result.err));
  }
  return text + "    </testcase>\n";
}

} // namespace

std::string xmlText(std::string_view text) {
  constexpr const char* unknown = "\xEF\xBF\xBD";
  std::string result;
  while (!text.empty()) {
    const std::size_t length = messages::characterLength(text);
    const std::string_view letter = text.substr(0, length == 0 ? 1 : length);
    const char first = letter.front();
    text.remove_prefix(letter.size());
    const bool isControl = first >= 0 && first < ' ' && first != '\n' && first != '\t';
    if (length == 0 || isControl || first == '\x7F' || isNoCharacter(letter)) {
      result += unknown;
    } else if (first == '&') {
      result += "&amp;";
    } else if (first == '<') {
      result += "&lt;";
    } else if (first == '>') {
      result += "&gt;";
    } else if (first == '"') {
      result += "&quot;";
    } else {
      result += letter;
    }
  }
  return result;
}

void writeJUnit(const std::string& path, const std::vector<TestResult>& results,
                const TestSum& sum) {
  std::size_t failures = 0;
  for (const TestResult& result : results) {
    failures += result.status == TestResult::Status::Failed ? 1 : 0;
  }
  const std::string counts =
      fmt::format(R"(tests="{}" failures="{}" errors="{}" skipped="0" time="{:.6f}")",
                  results.size(), failures, sum.failed - failures, sum.seconds);
  formats::OutputFile file(path);
  file.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  file.write(fmt::format("<testsuites {}>\n", counts));
  file.write(fmt::format("  <testsuite name=\"gk test\" {} timestamp=\"{:%Y-%m-%dT%H:%M:%S}\" "
                         "hostname=\"{}\">\n",
                         counts, fmt::gmtime(std::time(nullptr)), xmlText(hostName())));
  for (const TestResult& result : results) {
    file.write(testCase(result));
  }
  file.write("  </testsuite>\n</testsuites>\n");
  file.appear();
}

} // namespace gk::app
