#include "formats/compare/Comparison.h"
#include "formats/compare/ReadReported.h"
#include "formats/text/InputError.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Require.h"

// Lines of output as a file of any bytes: either one line says what is wrong with them, or they can
// be compared, and do not differ from themselves.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const gk::fuzz::MemoryFile file;
  if (!file.write({data, size})) {
    return 0;
  }
  const gk::formats::ReportedChoice choice{gk::formats::LineKinds::all(), {}};
  gk::formats::ValuePool pool;
  gk::formats::ReportedRun run(pool, choice);
  try {
    gk::formats::isOutput(file.path());
    gk::formats::readOutput(file.path(), run);
  } catch (const gk::formats::InputError& error) {
    gk::fuzz::require(std::string_view(error.what()).find('\n') == std::string_view::npos,
                      "an error is one line");
    return 0;
  }
  gk::fuzz::require(gk::formats::Comparison(run, run, {0.1, 1}).isSame(),
                    "a run does not differ from itself");
  return 0;
}
