#include "runtime/report/ReportPage.h"

#include "messages/json/JsonText.h"
#include "messages/text/Numbers.h"
#include "runtime/report/PageData.h"
#include "runtime/report/ReportTemplate.h"

#include <fmt/format.h>

#include <string_view>

namespace gk::runtime {

namespace {

/// Writes JSON member by member; commas come by themselves.
class Json {
public:
  explicit Json(std::string& out) : fOut(out) {}

  Json& open(char bracket) {
    xSeparate();
    fOut += bracket;
    fIsFirst = true;
    return *this;
  }
  Json& close(char bracket) {
    fOut += bracket;
    fIsFirst = false;
    return *this;
  }
  Json& key(std::string_view name) {
    xSeparate();
    messages::appendJsonString(fOut, name);
    fOut += ':';
    fIsFirst = true;
    return *this;
  }
  Json& text(std::string_view text) {
    xSeparate();
    messages::appendJsonString(fOut, text);
    return *this;
  }
  Json& number(std::uint64_t number) {
    xSeparate();
    fOut += std::to_string(number);
    return *this;
  }
  Json& number(float number) {
    xSeparate();
    fmt::format_to(std::back_inserter(fOut), "{:.6g}", number);
    return *this;
  }
  Json& seconds(GK::GKMicros time) {
    xSeparate();
    messages::appendSeconds(fOut, time);
    return *this;
  }

private:
  void xSeparate() {
    if (!std::exchange(fIsFirst, false)) {
      fOut += ',';
    }
  }

  std::string& fOut;
  bool fIsFirst = true;
};

void appendEvents(Json& json, const ReportData& data) {
  json.key("events").open('[');
  for (const auto& [name, event] : data.events) {
    json.open('{').key("name").text(name).key("count").number(event.count);
    json.key("micro").number(static_cast<std::uint64_t>(event.isMicro));
    json.key("last").text(event.lastValue);
    json.key("weight").number(static_cast<std::uint64_t>(event.importance));
    json.key("words").open('[');
    for (const auto& [words, importance] : event.words) {
      json.open('[').text(words).number(static_cast<std::uint64_t>(importance)).close(']');
    }
    json.close(']').key("raises").open('[');
    for (std::size_t i = 0; i < event.raises.size(); ++i) {
      json.open('[').seconds(event.raises[i].first).text(event.raises[i].second);
      if (i < event.said.size() && event.said[i] < event.words.size()) {
        json.number(static_cast<std::uint64_t>(event.said[i]));
      }
      json.close(']');
    }
    json.close(']').close('}');
  }
  json.close(']');
}

void appendPlots(Json& json, const ReportData& data) {
  json.key("plots").open('[');
  for (const ReportData::Plot& plot : data.plots) {
    json.open('{').key("title").text(plot.title).key("unit").text(plot.unit);
    json.key("series").open('[');
    for (const ReportData::Series& series : plot.series) {
      const std::vector<Trace::Span> spans = series.trace.spans();
      json.open('{').key("name").text(series.name).key("spans").open('[');
      for (const Trace::Span& span : spans) {
        json.open('[').seconds(span.time).number(span.least);
        if (span.most != span.least) {
          json.number(span.most);
        }
        json.close(']');
      }
      json.close(']').close('}');
    }
    json.close(']').close('}');
  }
  json.close(']');
}

void appendLog(Json& json, const ReportData& data) {
  json.key("log").open('[');
  for (const ReportData::LogLine& line : data.log) {
    json.open('[').seconds(line.time).number(static_cast<std::uint64_t>(line.level));
    json.text(line.category).text(line.text).close(']');
  }
  json.close(']');
}

std::string dataText(const ReportAbout& about, const ReportData& data) {
  std::string out;
  Json json(out);
  json.open('{').key("title").text(about.title).key("end").seconds(data.end);
  json.key("ticks").number(data.ticks).key("raises").number(data.raises);
  json.key("errors").number(data.errors).key("warnings").number(data.warnings);
  json.key("facts").open('[');
  for (const auto& [name, text] : about.facts) {
    json.open('[').text(name).text(text).close(']');
  }
  json.close(']').key("story").open('[');
  for (const std::string& sentence : storyOf(data)) {
    json.text(sentence);
  }
  json.close(']').key("complaints").open('[');
  for (const std::string& warning : about.warnings) {
    json.text(warning);
  }
  json.close(']');
  appendEvents(json, data);
  appendPlots(json, data);
  appendLog(json, data);
  json.close('}');
  return out;
}

} // namespace

std::string reportPage(const ReportAbout& about, const ReportData& data) {
  std::string page(kReportHead);
  page += pageData(dataText(about, data));
  page += kReportTail;
  return page;
}

} // namespace gk::runtime
