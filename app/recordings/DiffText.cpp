#include "app/recordings/DiffText.h"

#include "app/terminal/Screen.h"
#include "app/terminal/Table.h"
#include "formats/compare/Alignment.h"
#include "formats/text/Printable.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string_view>

namespace gk::app {

namespace {

using formats::Comparison;
using formats::DifferenceKind;
using formats::ReportedValue;

/// Columns of names, and of time, kind and short values beside them.
constexpr std::size_t kNameWidth = 34;
constexpr std::size_t kLeastNameWidth = 12;
constexpr std::size_t kOtherWidth = 42;
/// Differences of one name that a terminal shows.
constexpr std::size_t kMostOfName = 5;
/// Text is put out in pieces of about this size.
constexpr std::size_t kPiece = std::size_t{64} * 1024;

std::string_view colourOf(DifferenceKind kind) {
  switch (kind) {
  case DifferenceKind::Missing:
    return "31";
  case DifferenceKind::Extra:
    return "32";
  case DifferenceKind::Changed:
    return "33";
  case DifferenceKind::Moved:
    break;
  }
  return "36";
}

std::string nameText(const Comparison::Name& name) {
  return formats::printable(name.text());
}

std::string secondsText(GK::GKMicros time) {
  std::string text;
  messages::appendSeconds(text, time);
  return text;
}

std::string valueText(const ReportedValue& value, const formats::ValuePool& pool) {
  std::string text;
  pool.appendJson(text, value.word);
  return formats::printable(text);
}

/// What is to be said of a difference behind its name.
std::string tellingOf(const Comparison::Difference& difference, const formats::ValuePool& pool) {
  if (difference.a == nullptr || difference.b == nullptr) {
    return valueText(*(difference.a != nullptr ? difference.a : difference.b), pool);
  }
  std::string text = valueText(*difference.a, pool);
  if (difference.kind == DifferenceKind::Changed) {
    text += " -> " + valueText(*difference.b, pool);
  }
  if (const GK::GKMicros moved = difference.b->time - difference.a->time; moved != 0) {
    text += fmt::format("  {} -> {} s ({}{} s)", secondsText(difference.a->time),
                        secondsText(difference.b->time), moved > 0 ? "+" : "", secondsText(moved));
  }
  return text;
}

std::string rowOf(const Comparison::Difference& difference, const formats::ValuePool& pool,
                  std::size_t nameWidth) {
  constexpr double microsPerSecond = 1e6;
  return fmt::format("{:10.3f}  {:<8} {:<{}} {}",
                     static_cast<double>(difference.time()) / microsPerSecond,
                     formats::differenceName(difference.kind), nameText(*difference.name),
                     nameWidth, tellingOf(difference, pool));
}

std::vector<std::string> countCells(const formats::DifferenceCounts& counts) {
  return {std::to_string(counts.missing), std::to_string(counts.extra),
          std::to_string(counts.changed), std::to_string(counts.moved)};
}

void append(std::vector<std::string>& row, std::vector<std::string> cells) {
  row.insert(row.end(), std::make_move_iterator(cells.begin()),
             std::make_move_iterator(cells.end()));
}

} // namespace

std::string diffFactsText(const Comparison& comparison) {
  std::vector<std::vector<std::string>> rows{{"", "A", "B"}};
  const auto textOf = [](const formats::ReportedRun& run, const std::string& name) {
    const auto found =
        std::ranges::find(run.facts, name, &std::pair<std::string, std::string>::first);
    return found != run.facts.end() ? found->second : std::string();
  };
  std::set<std::string> told;
  for (const formats::ReportedRun* run : {&comparison.a(), &comparison.b()}) {
    for (const auto& [name, text] : run->facts) {
      if (told.insert(name).second) {
        rows.push_back({name, textOf(comparison.a(), name), textOf(comparison.b(), name)});
      }
    }
  }
  return tableText(rows);
}

void printDifferences(const Comparison& comparison) {
  const formats::ValuePool& pool = comparison.a().pool();
  const bool isFolded = isTerminal();
  const bool isColoured = hasColours();
  const std::size_t columns = isFolded ? screenSize().columns : 0;
  // A narrow terminal has narrower columns, so that short values fit.
  const std::size_t nameWidth =
      isFolded ? std::clamp(columns - std::min(columns, kOtherWidth), kLeastNameWidth, kNameWidth)
               : kNameWidth;
  std::map<const Comparison::Name*, std::size_t> shown;
  std::string text;
  comparison.forEach([&](const Comparison::Difference& difference) {
    std::string row;
    std::string_view colour = colourOf(difference.kind);
    if (isFolded) {
      const std::size_t count = ++shown[difference.name];
      if (count > kMostOfName + 1) {
        return true;
      }
      row = rowOf(difference, pool, nameWidth);
      if (count > kMostOfName) {
        row = fmt::format("{:>10}  more of {}: counted below", "...", nameText(*difference.name));
        colour = "2";
      }
      row = cutLine(row, columns);
    } else {
      row = rowOf(difference, pool, nameWidth);
    }
    text += isColoured ? fmt::format("\x1b[{}m{}\x1b[0m\n", colour, row) : row + "\n";
    if (text.size() >= kPiece) {
      fmt::print("{}", text);
      text.clear();
    }
    return true;
  });
  fmt::print("{}", text);
}

std::string diffNamesText(const Comparison& comparison, bool isAll) {
  std::vector<std::vector<std::string>> rows{
      {"NAME", "IN A", "IN B", "MISSING", "EXTRA", "CHANGED", "MOVED"}};
  for (const Comparison::Name* name : comparison.names()) {
    if (isAll || name->counts.sum() > 0) {
      rows.push_back(
          {nameText(*name), std::to_string(name->valuesA), std::to_string(name->valuesB)});
      append(rows.back(), countCells(name->counts));
    }
  }
  return rows.size() > 1 ? tableText(rows) : std::string();
}

std::string diffVerdictText(const Comparison& comparison) {
  const std::vector<const Comparison::Name*> names = comparison.names();
  std::string text;
  std::vector<std::string_view> kinds;
  for (const formats::LineKind kind : comparison.leftOut()) {
    kinds.push_back(formats::lineKindName(kind));
  }
  if (!kinds.empty()) {
    text += fmt::format("not compared, as one of the two does not tell it: {}\n",
                        fmt::join(kinds, ", "));
  }
  std::uint64_t values = 0;
  std::size_t differing = 0;
  for (const Comparison::Name* name : names) {
    values += name->valuesA + name->valuesB;
    differing += name->counts.sum() > 0 ? 1 : 0;
    if (name->isInWindows) {
      text += fmt::format("{}: more than {} differences follow each other: matched in windows of "
                          "{} s\n",
                          nameText(*name), formats::Alignment::kMostUnmatched,
                          secondsText(formats::Alignment::kWindow));
    }
  }
  if (comparison.isSame()) {
    return text + fmt::format("the same: {} values of {} names\n", values, names.size());
  }
  const formats::DifferenceCounts& counts = comparison.counts();
  return text + fmt::format("different: {} missing, {} extra, {} changed, {} moved, in {} of {} "
                            "names; the first at {} s\n",
                            counts.missing, counts.extra, counts.changed, counts.moved, differing,
                            names.size(), secondsText(*firstDifference(comparison)));
}

std::string diffFilesText(const std::vector<DiffOfFile>& files) {
  std::vector<std::vector<std::string>> rows{
      {"FILE", "RESULT", "MISSING", "EXTRA", "CHANGED", "MOVED", "FIRST"}};
  std::size_t same = 0;
  std::size_t malformed = 0;
  for (const DiffOfFile& file : files) {
    if (file.state != DiffOfFile::State::Compared) {
      const bool isCrash = file.state == DiffOfFile::State::Crashed;
      malformed += isCrash ? 0 : 1;
      rows.push_back({file.file, isCrash ? "crashed" : "malformed"});
      continue;
    }
    const bool isSame = file.counts.sum() == 0;
    same += isSame ? 1 : 0;
    rows.push_back({file.file, isSame ? "same" : "different"});
    append(rows.back(), countCells(file.counts));
    rows.back().push_back(file.first ? secondsText(*file.first) + " s" : "");
  }
  return tableText(rows) + fmt::format("{} the same, {} different, {} malformed\n", same,
                                       files.size() - same - malformed, malformed);
}

std::optional<GK::GKMicros> firstDifference(const Comparison& comparison) {
  std::optional<GK::GKMicros> first;
  comparison.forEach([&first](const Comparison::Difference& difference) {
    first = difference.time();
    return false;
  });
  return first;
}

} // namespace gk::app
