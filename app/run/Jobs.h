#pragma once

#include <string>
#include <vector>

namespace gk::app {

/// What `runJobs` does for one file.
struct Job {
  /// The file that the line at the end is about.
  std::string name;
  /// Options of this program, without the program's own name.
  std::vector<std::string> arguments;
};

/// Runs this program once for each job, up to `parallel` at a time, each in a process of its own
/// with nothing on standard output. When one has ended, the last line that it wrote to standard
/// error appears on standard output behind the job's name; expectations that do not hold are told
/// on standard error. Returns the exit code that tells most.
int runJobs(const std::vector<Job>& jobs, unsigned int parallel);

} // namespace gk::app
