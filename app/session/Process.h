#pragma once

#include <functional>

namespace gk::app {

/// All that a program's `main` does around its work: prepares the process, puts standard output
/// out, and makes a line, which begins with `program`, and a failure of what `work` raises. Returns
/// the exit code.
int runProcess(const char* program, const std::function<int()>& work);

/// What a process has to see to before it does anything else: that descriptors 0, 1 and 2 are what
/// they should be, and that no signal that ends it leaves half of a file behind.
void prepareProcess();

/// Puts out what standard output still holds back. Complains when some of it did not get there;
/// returns `code`, or a failure instead of success.
int finishStandardOutput(int code);

} // namespace gk::app
