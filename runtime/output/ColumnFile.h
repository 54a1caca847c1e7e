#pragma once

#include "formats/files/OutputFile.h"
#include "gk/GKTime.h"
#include "messages/json/KeyTypes.h"
#include "runtime/output/Reporter.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gk::runtime {

/// Sampled values as a table that numpy maps without copying: a structured array (.npy, format
/// versions 1 to 3, https://numpy.org/doc/stable/reference/generated/numpy.lib.format.html), a row
/// for each sample. Its fields are "time", seconds as an 8-byte float, and the keys in their order,
/// 4-byte floats and ints; a bool is an int, 0 or 1.
///
/// What a key holds is decided by the first row where `keyTypeOf` has no answer. A float key that
/// is not there is NaN. What does not fit is told by `commit`; from there on nothing is written.
/// One call at a time.
class ColumnFile {
public:
  /// Raises `OutputError` when there can be no such file, when it is no regular file (how many rows
  /// there are is written last, at the beginning), and for keys that cannot be names of fields.
  ColumnFile(const std::string& path, const formats::OutputFileOptions& options,
             const std::vector<std::string>& keys, const messages::KeyTypeOf& keyTypeOf);

  /// Adds a row. `values`: those of the keys that are there, in the order of the keys.
  void add(GK::GKMicros time, const Sample& values);

  /// Makes the file appear under its name. Raises `OutputError`.
  void commit();

private:
  struct Column {
    std::string key;
    /// Nothing before the first row for keys of which no type is known; else Float, Int or Bool.
    std::optional<GK::GKValue::Type> type;
  };

  void xBegin(const Sample& values);
  void xAppend(const Column& column, const GK::GKValue* value, GK::GKMicros time);
  void xAppendBits(const void* bits, std::size_t size);
  void xFlush();
  std::string xHeader() const;
  [[noreturn]] void xRefuse(const Column& column, GK::GKMicros time, const std::string& why) const;

  const std::string fPath;
  formats::OutputFile fFile;
  std::vector<Column> fColumns;
  std::uint64_t fRows = 0;
  bool fHasBegun = false;
  std::string fBuffer;
  /// What went wrong first.
  std::optional<formats::OutputError> fError;
};

} // namespace gk::runtime
