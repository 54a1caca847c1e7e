#include "runtime/output/PrintedLines.h"

#include <iostream>
#include <utility>

namespace gk::runtime {

PrintedLines::PrintedLines(boost::shared_ptr<Reporter> reporter)
    : fReporter(std::move(reporter)), fBefore(std::cout.rdbuf(this)) {}

PrintedLines::~PrintedLines() {
  std::cout.rdbuf(fBefore);
  if (!fLine.empty()) {
    xPut(fLine + "\n");
  }
}

void PrintedLines::xPut(std::string_view lines) const {
  if (fReporter != nullptr) {
    fReporter->print(lines);
  } else {
    std::cerr << lines;
  }
}

std::streamsize PrintedLines::xsputn(const char* text, std::streamsize count) {
  const std::lock_guard lock(fMutex);
  fLine.append(text, static_cast<std::size_t>(count));
  if (const std::size_t end = fLine.rfind('\n'); end != std::string::npos) {
    xPut(std::string_view(fLine).substr(0, end + 1));
    fLine.erase(0, end + 1);
  }
  return count;
}

PrintedLines::int_type PrintedLines::overflow(int_type c) {
  if (c != traits_type::eof()) {
    const char one = traits_type::to_char_type(c);
    xsputn(&one, 1);
  }
  return traits_type::not_eof(c);
}

} // namespace gk::runtime
