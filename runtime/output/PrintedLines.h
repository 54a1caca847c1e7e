#pragma once

#include "runtime/output/Reporter.h"

#include <boost/shared_ptr.hpp>

#include <mutex>
#include <streambuf>
#include <string>
#include <string_view>

namespace gk::runtime {

/// What modules print to `std::cout` while this object lives goes through a reporter, line by line:
/// it lands in no other line, and no module ever waits for the terminal or a pipe where the
/// reporter does not. Without a reporter it goes to standard error: standard output is for a run's
/// own lines then. Printing from any thread.
class PrintedLines : private std::streambuf {
public:
  /// `reporter` may be null.
  explicit PrintedLines(boost::shared_ptr<Reporter> reporter);
  /// Puts the last line out, whole or not.
  ~PrintedLines() override;
  PrintedLines(const PrintedLines&) = delete;
  PrintedLines& operator=(const PrintedLines&) = delete;

private:
  std::streamsize xsputn(const char* text, std::streamsize count) override;
  int_type overflow(int_type c) override;
  void xPut(std::string_view lines) const;

  const boost::shared_ptr<Reporter> fReporter;
  std::streambuf* const fBefore;
  std::mutex fMutex;
  std::string fLine;
};

} // namespace gk::runtime
