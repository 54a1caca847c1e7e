#include "gateway/robot/ModuleStatus.h"

#include "formats/text/Printable.h"
#include "messages/json/JsonValue.h"
#include "messages/text/FormatError.h"

#include <algorithm>
#include <utility>

namespace gk::gateway {

namespace {

using Type = GK::GKValue::Type;

[[noreturn]] void refuseRow(std::size_t number, const std::string& why) {
  throw messages::FormatError("row " + std::to_string(number) + " of its answer " + why);
}

/// A text of a row, as it may stand in a line.
std::string textOf(const GK::GKValue& value, std::size_t number, const char* what) {
  if (value.type() != Type::String) {
    refuseRow(number, std::string("has a ") + what + " that is no text");
  }
  if (value.toString().size() > kMaxStatusText) {
    refuseRow(number, std::string("has a ") + what + " of more than " +
                          std::to_string(kMaxStatusText) + " bytes");
  }
  return formats::printable(value.toString());
}

StatusRow rowOf(const GK::GKValue& value, std::size_t number) {
  constexpr std::size_t cells = 5;
  if (value.type() != Type::Array || value.toArray().size() != cells) {
    refuseRow(number, "is not [name, unit, value, level, text]");
  }
  const std::vector<GK::GKValue>& cell = value.toArray();
  StatusRow row;
  row.name = textOf(cell[0], number, "name");
  row.unit = textOf(cell[1], number, "unit");
  row.value = cell[2];
  row.text = textOf(cell[4], number, "text");
  if (row.name.empty()) {
    refuseRow(number, "has no name");
  }
  if (row.value.type() == Type::Array) {
    refuseRow(number, "has an array for its value");
  }
  if (row.value.type() == Type::String && row.value.toString().size() > kMaxStatusText) {
    refuseRow(number, "has a value of more than " + std::to_string(kMaxStatusText) + " bytes");
  }
  const bool isLevel = cell[3].type() == Type::Int && cell[3].toInt() >= 0 && cell[3].toInt() <= 2;
  if (!isLevel) {
    refuseRow(number, "has a level that is none of 0, 1 and 2");
  }
  row.level = static_cast<devices::Level>(cell[3].toInt());
  return row;
}

} // namespace

std::string StatusRow::told() const {
  // Of what is so or not the words say more.
  const bool isFigure = value.isValid() && value.type() != Type::Bool;
  if (!isFigure && !text.empty()) {
    return name + ": " + text;
  }
  std::string shown;
  if (value.type() == Type::String) {
    shown = formats::printable(value.toString());
  } else {
    messages::appendJson(shown, value);
  }
  shown += unit.empty() ? "" : " " + unit;
  return name + ": " + shown + (text.empty() ? "" : " (" + text + ")");
}

std::vector<StatusRow> statusRows(const std::string& module, const GK::GKValue& answer) {
  if (answer.type() != Type::Array) {
    throw messages::FormatError("its answer is no array");
  }
  if (answer.toArray().size() > kMaxStatusRows) {
    throw messages::FormatError("its answer has more than " + std::to_string(kMaxStatusRows) +
                                " rows");
  }
  std::vector<StatusRow> rows;
  for (const GK::GKValue& value : answer.toArray()) {
    StatusRow row = rowOf(value, rows.size() + 1);
    if (std::ranges::find(rows, row.name, &StatusRow::name) != rows.end()) {
      refuseRow(rows.size() + 1, "has the name of another one: " + row.name);
    }
    row.module = module;
    rows.push_back(std::move(row));
  }
  return rows;
}

} // namespace gk::gateway
