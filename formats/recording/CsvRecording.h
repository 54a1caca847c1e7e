#pragma once

#include "formats/recording/Recording.h"
#include "formats/recording/TimeOrder.h"
#include "formats/text/LineReader.h"
#include "messages/json/KeyTypes.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace gk::formats {

/// A table of device values: the header "time,KEY,KEY,...", then a row for each time.
///
/// An empty cell leaves its key unchanged. Columns of int keys are ints, all others floats.
class CsvRecording final : public Recording {
public:
  CsvRecording(const std::string& path, const messages::KeyTypeOf& keyTypeOf);

  void play(RecordingTarget& target) override;
  void skip() override;
  double progress() const noexcept override { return fReader.progress(); }

private:
  struct Column {
    bool isInt() const noexcept { return type == GK::GKValue::Type::Int; }
    void take(float value) noexcept { xTake(std::bit_cast<std::uint32_t>(value)); }
    void take(std::int32_t value) noexcept { xTake(static_cast<std::uint32_t>(value)); }

    std::string key;
    /// Float or int.
    GK::GKValue::Type type = GK::GKValue::Type::Float;
    /// The current row has a value for this column.
    bool isPresent = false;
    std::uint32_t bits = 0;
    GK::GKMemoryCell* cell = nullptr;

  private:
    void xTake(std::uint32_t value) noexcept {
      bits = value;
      isPresent = true;
    }
  };

  void xReadHeader(const messages::KeyTypeOf& keyTypeOf);
  messages::KeyType xTypeOf(std::string_view key, const messages::KeyTypeOf& keyTypeOf) const;
  void xReadRow();
  double xParseTime(std::string_view text) const;
  void xParseCell(Column& column, std::string_view text) const;
  [[noreturn]] void xFailOnCount(std::string_view line) const;
  void xExpectOnlyBlankLines();

  LineReader fReader;
  TimeOrder fOrder;
  std::vector<Column> fColumns;
  RecordingTarget* fTarget = nullptr;
};

} // namespace gk::formats
