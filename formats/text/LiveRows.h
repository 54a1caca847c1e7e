#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace gk::formats {

/// Something that has happened, as it is shown.
struct LiveRow {
  /// Seconds since the start.
  double time = 0;
  /// "event", "log"; what it is about; what there is to say. All of them printable.
  std::string kind;
  std::string name;
  std::string value;
  /// It is something that comes with the same value again and again, and of which people want to
  /// see what changes: an event. `colour` is not looked at then.
  bool isEvent = false;
  bool isMicro = false;
  /// Terminal colour (ECMA-48 SGR) of everything else.
  std::string_view colour = "2";
  /// What it says in a sentence, for a terminal; empty where there is none.
  std::string words = {};
};

/// Lines for people about what happens: time, what, value. For one thread at a time.
///
/// On a terminal what matters stands out: contacts, poses and whatever else is on, off or a word
/// more than numbers that drift, and least of all what was so before. An event that comes again
/// with the same value within three seconds is counted on a last line that is not finished
/// ("12.340  event  SonarLeftNothingDetected  1.0  x 20"), and gets a line of its own when it is
/// over. What can be said in words begins with them. Nothing that others write to the same terminal
/// is ever written over.
class LiveRows {
public:
  struct Style {
    bool isColoured = false;
    /// Columns of the terminal, asked for each time; without it nothing is folded, and each row is
    /// a line at once.
    std::function<std::size_t()> columns = nullptr;
    /// Tells by its name whether an event is shown; all are without it.
    std::function<bool(const std::string&)> isWanted = nullptr;
  };

  explicit LiveRows(Style style) : fStyle(std::move(style)) {}

  /// Each appends what is to be written next.
  void append(std::string& out, const LiveRow& row);
  /// Whole lines of others, as they are.
  void appendLines(std::string& out, std::string_view lines);
  /// At the end.
  void finish(std::string& out);

private:
  /// What was told of a name last.
  struct Last {
    LiveRow row;
    /// How often it has come in a row.
    std::uint64_t count = 0;
  };

  void xClearUnfinished(std::string& out);
  void xSettle(std::string& out, Last& last);
  void xSettleBefore(std::string& out, double time);
  void xAppend(std::string& out, const LiveRow& row, std::string_view colour,
               std::string_view more) const;
  void xAppendUnfinished(std::string& out, const Last& last);
  std::string xText(const LiveRow& row) const;

  const Style fStyle;
  /// By kind and name.
  std::map<std::pair<std::string, std::string>, Last> fLast;
  /// Names that are being counted.
  std::size_t fCounting = 0;
  bool fHasUnfinished = false;
};

} // namespace gk::formats
