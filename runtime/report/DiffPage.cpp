#include "runtime/report/DiffPage.h"

#include "formats/compare/Alignment.h"
#include "messages/json/JsonWriter.h"
#include "messages/text/Numbers.h"
#include "runtime/report/PageData.h"
#include "runtime/report/ReportTemplate.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

namespace gk::runtime {

namespace {

using formats::Comparison;
using formats::ReportedRun;
using formats::ReportedValue;

/// What a page shows at most: nobody steps through more, and browsers become slow.
constexpr std::size_t kMostDifferences = 5'000;
constexpr std::size_t kMostLanes = 200;
constexpr std::size_t kMostValuesOfLane = 2'000;

/// The data of a page, put together.
class DiffData {
public:
  DiffData(const Comparison& comparison, const std::string& by)
      : fComparison(comparison), fPool(comparison.a().pool()), fBy(by) {
    xChoose();
  }

  std::string text() {
    std::string out;
    messages::JsonWriter json(out);
    json.beginObject().key("title").text(xTitle()).key("verdict").text(xVerdict());
    xAppendFacts(json);
    json.key("complaints").beginArray();
    for (const std::string& note : xNotes()) {
      json.text(note);
    }
    json.endArray();
    // Whatever is drawn is drawn by then.
    xAppendLanes(json);
    json.key("end").raw(xSeconds(fEnd));
    xAppendDifferences(json);
    xAppendNames(json);
    json.endObject();
    return out;
  }

private:
  /// Names that differ come first, in the order of their first differences.
  void xChoose() {
    fComparison.forEach([this](const Comparison::Difference& difference) {
      fFirst = fFirst.value_or(difference.time());
      if (fShown.size() < kMostDifferences) {
        xLane(*difference.name);
        fShown.push_back(difference);
        for (const ReportedValue* value : {difference.a, difference.b}) {
          if (value != nullptr) {
            fDiffering.insert(value);
          }
        }
      }
      return fShown.size() < kMostDifferences;
    });
    for (const Comparison::Name* name : fComparison.names()) {
      if (fLanes.size() < kMostLanes) {
        xLane(*name);
      }
    }
  }

  void xLane(const Comparison::Name& name) {
    if (fNumbers.try_emplace(&name, fLanes.size()).second) {
      fLanes.push_back(&name);
    }
  }

  static std::string xFileName(const ReportedRun& run) {
    return run.facts.empty() ? std::string()
                             : std::filesystem::path(run.facts.front().second).filename().string();
  }

  std::string xTitle() const {
    const std::string a = xFileName(fComparison.a());
    const std::string b = xFileName(fComparison.b());
    return a == b ? a + ", recorded and run now" : a + " and " + b;
  }

  std::string xVerdict() const {
    if (!fFirst) {
      return fmt::format("The same: {} names.", fComparison.names().size());
    }
    const formats::DifferenceCounts& counts = fComparison.counts();
    return fmt::format("Different: {} missing, {} extra, {} changed, {} moved; the first at {} s.",
                       counts.missing, counts.extra, counts.changed, counts.moved,
                       xSeconds(*fFirst));
  }

  std::vector<std::string> xNotes() const {
    std::vector<std::string> notes;
    for (const ReportedRun* run : {&fComparison.a(), &fComparison.b()}) {
      notes.insert(notes.end(), run->warnings.begin(), run->warnings.end());
    }
    for (const formats::LineKind kind : fComparison.leftOut()) {
      notes.push_back(fmt::format("Not compared, as one of the two does not tell it: {}.",
                                  formats::lineKindName(kind)));
    }
    for (const Comparison::Name* name : fComparison.names()) {
      if (name->isInWindows) {
        notes.push_back(fmt::format(
            "{}: more than {} differences follow each other: matched in windows of {} s.",
            name->text(), formats::Alignment::kMostUnmatched,
            xSeconds(formats::Alignment::kWindow)));
      }
    }
    if (fComparison.counts().sum() > fShown.size()) {
      notes.push_back(fmt::format("The first {} differences of {} are shown.", fShown.size(),
                                  fComparison.counts().sum()));
    }
    if (fLanes.size() < fComparison.names().size()) {
      notes.push_back(fmt::format("{} names of {} have a time line.", fLanes.size(),
                                  fComparison.names().size()));
    }
    return notes;
  }

  void xAppendFacts(messages::JsonWriter& json) const {
    const auto textOf = [](const ReportedRun& run, const std::string& name) {
      const auto found =
          std::ranges::find(run.facts, name, &std::pair<std::string, std::string>::first);
      return found != run.facts.end() ? found->second : std::string();
    };
    json.key("facts").beginArray();
    std::set<std::string> told;
    for (const ReportedRun* run : {&fComparison.a(), &fComparison.b()}) {
      for (const auto& [name, text] : run->facts) {
        if (told.insert(name).second) {
          json.beginArray().text(name);
          json.text(textOf(fComparison.a(), name)).text(textOf(fComparison.b(), name)).endArray();
        }
      }
    }
    json.beginArray().text("compared by").text(fBy).text(fBy).endArray().endArray();
  }

  void xAppendLanes(messages::JsonWriter& json) {
    json.key("lanes").beginArray();
    for (const Comparison::Name* name : fLanes) {
      json.beginObject().key("name").text(name->text());
      xAppendValues(json.key("a"), fComparison.a().find(name->kind, name->name));
      xAppendValues(json.key("b"), fComparison.b().find(name->kind, name->name));
      json.endObject();
    }
    json.endArray();
  }

  /// All that differ, and every so many of the rest.
  void xAppendValues(messages::JsonWriter& json, const ReportedRun::Row* row) {
    json.beginArray();
    if (row != nullptr && !row->values.empty()) {
      const std::size_t stride = row->values.size() / kMostValuesOfLane + 1;
      for (std::size_t i = 0; i < row->values.size(); ++i) {
        const ReportedValue& value = row->values[i];
        if (i % stride == 0 || fDiffering.contains(&value)) {
          json.beginArray().raw(xSeconds(value.time)).text(xText(value)).endArray();
        }
      }
      fEnd = std::max(fEnd, row->values.back().time);
    }
    json.endArray();
  }

  void xAppendDifferences(messages::JsonWriter& json) const {
    const auto side = [&](const ReportedValue* value) {
      if (value != nullptr) {
        json.raw(xSeconds(value->time)).text(xText(*value));
      } else {
        json.null().null();
      }
    };
    json.key("differences").beginArray();
    for (const Comparison::Difference& difference : fShown) {
      json.beginArray().integer(static_cast<int>(difference.kind));
      json.unsignedInteger(fNumbers.at(difference.name));
      side(difference.a);
      side(difference.b);
      json.endArray();
    }
    json.endArray();
  }

  void xAppendNames(messages::JsonWriter& json) const {
    json.key("names").beginArray();
    for (const Comparison::Name* name : fComparison.names()) {
      json.beginArray().text(name->text());
      for (const std::uint64_t count :
           {std::uint64_t{name->valuesA}, std::uint64_t{name->valuesB}, name->counts.missing,
            name->counts.extra, name->counts.changed, name->counts.moved}) {
        json.unsignedInteger(count);
      }
      json.endArray();
    }
    json.endArray();
  }

  static std::string xSeconds(GK::GKMicros time) {
    std::string text;
    messages::appendSeconds(text, time);
    return text;
  }

  std::string xText(const ReportedValue& value) const {
    std::string text;
    fPool.appendJson(text, value.word);
    return text;
  }

  const Comparison& fComparison;
  const formats::ValuePool& fPool;
  const std::string fBy;
  std::vector<const Comparison::Name*> fLanes;
  std::map<const Comparison::Name*, std::size_t> fNumbers;
  std::vector<Comparison::Difference> fShown;
  std::set<const ReportedValue*> fDiffering;
  std::optional<GK::GKMicros> fFirst;
  GK::GKMicros fEnd = 0;
};

} // namespace

std::string diffPage(const Comparison& comparison, const std::string& by) {
  std::string page(kDiffHead);
  page += pageData(DiffData(comparison, by).text());
  page += kDiffTail;
  return page;
}

} // namespace gk::runtime
