#pragma once

#include "gk/GKApi.h"

#include <sstream>
#include <string>

/// The platform's log: numeric levels, a category, the function that writes.
namespace zu::log {

enum Level : int { Fatal = 1, Error = 2, Warning = 3, Info = 4, Verbose = 5, Debug = 6 };

/// "fatal", "error", "warning", "info", "verbose" or "debug".
GK_API const char* levelName(int level) noexcept;

/// One line being written. The line goes out when the stream is destroyed; a final newline of the
/// text is dropped. Numbers are written the same way whatever the process's locale is.
class GK_API LogStream {
public:
  LogStream(int level, std::string category, std::string function, std::string file = {},
            int line = 0);
  ~LogStream();
  LogStream(const LogStream&) = delete;
  LogStream& operator=(const LogStream&) = delete;

  template <class T> LogStream& operator<<(const T& value) {
    fText << value;
    return *this;
  }

private:
  int fLevel;
  std::string fCategory;
  std::string fFunction;
  std::string fFile;
  int fLine;
  std::ostringstream fText;
};

/// Streams of one level, as modules write them: `zu::log::warning("motion.sonar", "init") << ...`.
inline LogStream fatal(const char* category, const char* function) {
  return {Fatal, category, function};
}
inline LogStream error(const char* category, const char* function) {
  return {Error, category, function};
}
inline LogStream warning(const char* category, const char* function) {
  return {Warning, category, function};
}
inline LogStream info(const char* category, const char* function) {
  return {Info, category, function};
}
inline LogStream verbose(const char* category, const char* function) {
  return {Verbose, category, function};
}
inline LogStream debug(const char* category, const char* function) {
  return {Debug, category, function};
}

/// Lines up to this level go to the console (standard error); 0 silences it. 4 at the start.
GK_API void setConsoleLevel(int level) noexcept;

/// Also appends lines up to `level` to `path`; an empty path ends it. Raises `GK::GKError` when the
/// file cannot be written.
GK_API void setFile(const std::string& path, int level);

} // namespace zu::log
