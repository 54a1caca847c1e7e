#pragma once

#include "formats/compare/ValuePool.h"
#include "formats/lines/OutputLine.h"
#include "gk/GKTime.h"

#include <deque>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace gk::formats {

/// Something that a run reported.
struct ReportedValue {
  /// Microseconds since the run's start.
  GK::GKMicros time = 0;
  ValuePool::Word word = 0;
};

/// Which of what runs report is looked at.
struct ReportedChoice {
  LineKinds kinds = LineKinds::parse("event,micro");
  /// Names to be left out; a word with "*", "?" or "[" is a pattern.
  std::vector<std::string> ignored;

  bool isIgnored(const std::string& name) const;
};

/// What one run reported, as rows of values: one for each kind of line and name. For one thread.
class ReportedRun {
public:
  struct Row {
    LineKind kind = LineKind::Event;
    std::string name;
    /// In the order of time, once the run has settled.
    std::vector<ReportedValue> values;
    bool isInOrder = true;
  };

  /// `pool` is shared by the runs that are to be compared. Both must outlive this object.
  ReportedRun(ValuePool& pool, const ReportedChoice& choice) : fPool(pool), fChoice(choice) {}

  const LineKinds& kinds() const noexcept { return fChoice.kinds; }
  bool isWanted(LineKind kind) const { return fChoice.kinds.contains(kind); }

  /// Each adds something that was reported, unless its kind or its name is not wanted.
  void add(GK::GKMicros time, LineKind kind, std::string_view name, const GK::GKValue& value);
  void addOrder(GK::GKMicros time, const GK::GKValue& value);
  /// `level` from 1 (fatal) to 6 (debug); the last two, which viewers do not tell apart, are one.
  void addLog(GK::GKMicros time, int level, std::string_view category, const std::string& function,
              const std::string& text);
  /// `module` and `method` are empty for errors that are none of the platform's.
  void addError(GK::GKMicros time, std::string_view call, const std::string& module,
                const std::string& method, const std::string& description);

  /// When all is there: puts the values of each row into the order of time.
  void settle();

  /// In the order of appearance.
  const std::deque<Row>& rows() const noexcept { return fRows; }
  const Row* find(LineKind kind, std::string_view name) const;
  ValuePool& pool() const noexcept { return fPool; }

  /// Names that were left out.
  const std::set<std::string>& ignored() const noexcept { return fIgnored; }

  /// What is known about the run: name and text, in the order in which they are shown. "file" comes
  /// first.
  std::vector<std::pair<std::string, std::string>> facts;
  /// What is reported before this time is left out.
  GK::GKMicros from = 0;
  /// Kinds of lines that its source can hold.
  LineKinds told = LineKinds::all();
  /// What may be wrong with it: one line each.
  std::vector<std::string> warnings;

private:
  /// Null for a row that is not wanted.
  Row* xRow(LineKind kind, std::string_view name);

  ValuePool& fPool;
  const ReportedChoice& fChoice;
  std::deque<Row> fRows;
  std::unordered_map<std::string, Row*> fByName;
  std::set<std::string> fIgnored;
  /// Kind and name as in `fByName`; kept for its memory.
  std::string fKey;
};

/// Makes room for one more by a quarter, so that millions of values take little more than they
/// need.
template <class Values> void makeRoom(Values& values) {
  constexpr std::size_t least = 16;
  if (values.size() == values.capacity()) {
    values.reserve(values.size() + values.size() / 4 + least);
  }
}

} // namespace gk::formats
