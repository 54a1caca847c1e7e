#include "formats/recording/McapRecording.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace gk::formats {

McapRecording::McapRecording(const std::string& path) : fFile(path) {
  xReadPreload();
  xReadLine();
}

void McapRecording::xReadPreload() {
  SetAction values;
  while (std::optional<RunEntry> entry = fFile.next()) {
    if (const auto* read = std::get_if<RunValues>(&*entry)) {
      for (const RunValue& value : read->values) {
        values.values.emplace_back(*fFile.key(value.key), read->value(value));
      }
    } else if (auto* action = std::get_if<RunAction>(&*entry)) {
      fPreload.push_back(std::move(action->action));
    } else if (const auto* start = std::get_if<RunStart>(&*entry)) {
      if (start->isWhole) {
        fPreload.emplace_back(UnsetAction{{"*"}});
      }
      break;
    } else if (const auto* turn = std::get_if<RunTurn>(&*entry)) {
      fFollowing = *turn;
      break;
    }
  }
  if (!values.values.empty()) {
    fPreload.emplace_back(std::move(values));
  }
}

void McapRecording::xReadLine() {
  fValues.clear();
  fActions.clear();
  fTime = fFollowing ? std::optional(fFollowing->time) : std::nullopt;
  const auto isEmpty = [this] { return fValues.empty() && fActions.empty(); };
  fFollowing.reset();
  while (std::optional<RunEntry> entry = fFile.next()) {
    if (const auto* turn = std::get_if<RunTurn>(&*entry)) {
      if (!isEmpty()) {
        fFollowing = *turn;
        return;
      }
      fTime = turn->time;
    } else if (const auto* values = std::get_if<RunValues>(&*entry)) {
      for (const RunValue& value : values->values) {
        fValues.emplace_back(value.key, values->value(value));
      }
    } else if (auto* action = std::get_if<RunAction>(&*entry)) {
      fActions.push_back(std::move(action->action));
    }
  }
  if (isEmpty()) {
    fTime.reset();
  }
}

void McapRecording::play(RecordingTarget& target) {
  for (const auto& [index, value] : fValues) {
    if (GK::GKMemoryCell* cell = xCell(index, target)) {
      cell->store(value);
    }
  }
  for (const Action& action : fActions) {
    target.act(action);
  }
  xReadLine();
}

GK::GKMemoryCell* McapRecording::xCell(std::uint64_t index, RecordingTarget& target) {
  fCells.resize(std::max<std::size_t>(fCells.size(), index + 1));
  if (fCells[index] == nullptr) {
    fCells[index] = target.column(*fFile.key(index));
  }
  return fCells[index];
}

} // namespace gk::formats
