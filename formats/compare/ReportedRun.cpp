#include "formats/compare/ReportedRun.h"

#include "formats/text/NamePattern.h"

#include <algorithm>
#include <utility>

namespace gk::formats {

bool ReportedChoice::isIgnored(const std::string& name) const {
  return std::ranges::any_of(ignored, [&name](const std::string& word) {
    return word == name || (isPattern(word) && isMeant(name, word));
  });
}

void ReportedRun::add(GK::GKMicros time, LineKind kind, std::string_view name,
                      const GK::GKValue& value) {
  if (!isWanted(kind) || time < from) {
    return;
  }
  if (Row* row = xRow(kind, name)) {
    row->isInOrder &= row->values.empty() || row->values.back().time <= time;
    makeRoom(row->values);
    row->values.push_back({time, fPool.word(value)});
  }
}

void ReportedRun::addOrder(GK::GKMicros time, const GK::GKValue& value) {
  add(time, LineKind::Order, "order", value);
}

void ReportedRun::addLog(GK::GKMicros time, int level, std::string_view category,
                         const std::string& function, const std::string& text) {
  static constexpr const char* names[] = {"none", "fatal", "error", "warning", "info", "debug"};
  if (isWanted(LineKind::Log)) {
    add(time, LineKind::Log, category,
        GK::GKValue::Array{names[std::clamp(level, 0, 5)], function, text});
  }
}

void ReportedRun::addError(GK::GKMicros time, std::string_view call, const std::string& module,
                           const std::string& method, const std::string& description) {
  if (isWanted(LineKind::Error)) {
    add(time, LineKind::Error, call, GK::GKValue::Array{module, method, description});
  }
}

void ReportedRun::settle() {
  for (Row& row : fRows) {
    if (!std::exchange(row.isInOrder, true)) {
      std::ranges::stable_sort(row.values, {}, &ReportedValue::time);
    }
  }
}

const ReportedRun::Row* ReportedRun::find(LineKind kind, std::string_view name) const {
  const auto found = fByName.find(std::string(1, static_cast<char>(kind)).append(name));
  return found != fByName.end() ? found->second : nullptr;
}

ReportedRun::Row* ReportedRun::xRow(LineKind kind, std::string_view name) {
  fKey.assign(1, static_cast<char>(kind)).append(name);
  const auto [entry, isNew] = fByName.try_emplace(fKey, nullptr);
  if (isNew) {
    std::string text(name);
    if (fChoice.isIgnored(text)) {
      fIgnored.insert(std::move(text));
    } else {
      fRows.push_back(Row{kind, std::move(text), {}, true});
      entry->second = &fRows.back();
    }
  }
  return entry->second;
}

} // namespace gk::formats
