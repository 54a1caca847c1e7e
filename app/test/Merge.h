#pragma once

#include "app/test/TestResult.h"

#include <string>
#include <vector>

namespace gk::app {

/// What `gk test --json` has written for the shards of one row, joined.
struct MergedResults {
  /// In the order in which one run without shards tells them.
  std::vector<TestResult> results;
  TestSum sum;
};

/// Reads the files, one for each shard. Raises `InputError` for one that is malformed, and for a
/// shard that is missing, there twice or of another row.
MergedResults mergeResults(const std::vector<std::string>& files);

} // namespace gk::app
