#include "gateway/past/PastView.h"
#include "messages/json/JsonWriter.h"
#include "messages/keys/Subjects.h"
#include "messages/notices/Raise.h"
#include "messages/text/Numbers.h"

#include <algorithm>
#include <cmath>

// The past as the page takes it.

namespace gk::gateway {

namespace {

constexpr std::string_view kJointTopic = "/joint_states";

std::string secondsText(GK::GKMicros time) {
  std::string text;
  messages::appendSeconds(text, time);
  return text;
}

/// A field of a channel as a row of values, without the brackets.
struct Column {
  std::string_view topic;
  std::string_view field;
  std::size_t key = 0;
  std::string values;
  bool isEverThere = false;
};

void appendCell(Column& column, const GK::GKValue& value) {
  column.values += column.values.empty() ? "" : ",";
  const bool isThere =
      value.type() != GK::GKValue::Type::Invalid &&
      !(value.type() == GK::GKValue::Type::Float && !std::isfinite(value.toFloat()));
  if (isThere) {
    column.isEverThere = true;
    messages::JsonWriter(column.values).value(value);
  } else {
    column.values += "null";
  }
}

void appendTopics(messages::JsonWriter& json, const std::vector<Column>& columns) {
  json.key("topics").beginObject();
  std::string_view topic;
  for (const Column& column : columns) {
    if (!column.isEverThere) {
      continue;
    }
    if (column.topic != topic) {
      if (!topic.empty()) {
        json.endObject();
      }
      topic = column.topic;
      json.key(topic).beginObject();
    }
    json.key(column.field).raw("[" + column.values + "]");
  }
  if (!topic.empty()) {
    json.endObject();
  }
  json.endObject();
}

void appendEvent(messages::JsonWriter& json, const GK::GKNotice& event) {
  json.beginObject().key("t_s").raw(secondsText(event.time)).key("name").text(event.name);
  json.key("kind").text(event.kind == GK::GKNotice::Kind::MicroEvent ? "micro" : "event");
  json.key("value").value(event.value).endObject();
}

} // namespace

std::string Past::json(const PastRange& range, std::string_view session) {
  const View view = xView();
  const GK::GKMicros from = std::max(range.from.value_or(view.begin), view.begin);
  GK::GKMicros to = std::min(range.to.value_or(view.end), view.end);
  std::optional<GK::GKMicros> next;

  std::vector<Column> columns;
  const auto addColumns = [&](std::string_view topic,
                              const std::vector<messages::SubjectField>& fields) {
    for (const messages::SubjectField& field : fields) {
      if (const auto key = view.byName.find(field.key); key != view.byName.end()) {
        columns.push_back({topic, field.name, key->second, {}, false});
      }
    }
  };
  addColumns(kJointTopic, messages::jointPositions());
  for (const messages::Subject& subject : messages::subjects()) {
    addColumns(subject.topic, subject.fields);
  }
  std::vector<GK::GKValue> state = view.base;
  std::string times;
  std::size_t bytes = 0;
  GK::GKMicros due = from;
  // A row is what stood when the next turn begins.
  std::optional<GK::GKMicros> row;
  const auto finishRow = [&] {
    if (!row || range.step <= 0 || *row < due || *row > to) {
      return;
    }
    times += (times.empty() ? "" : ",") + secondsText(*row);
    bytes = times.size();
    for (Column& column : columns) {
      appendCell(column, state[column.key]);
      bytes += column.values.size();
    }
    due = std::max(due + range.step, *row + range.step - range.step / 2);
    if (bytes > range.most) {
      to = *row;
      next = *row + 1;
    }
  };
  if (range.step > 0) {
    view.walk(
        [&](GK::GKMicros time) {
          finishRow();
          row = time;
          return time <= to && !next;
        },
        [&](const formats::RunValues& values) {
          for (const formats::RunValue& value : values.values) {
            state[value.key] = values.value(value);
          }
        },
        [](const formats::Action&) {});
    finishRow();
  }

  std::string events;
  messages::JsonWriter eventsJson(events);
  eventsJson.beginArray();
  for (const auto& piece : view.pieces) {
    for (const GK::GKNotice& event : piece->events) {
      if (!messages::isRaise(event) || event.time < from || event.time > to) {
        continue;
      }
      if (bytes + events.size() > range.most + range.most / 2) {
        to = event.time;
        next = event.time;
        break;
      }
      appendEvent(eventsJson, event);
    }
  }
  eventsJson.endArray();

  next = next ? next : range.rest;
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject().key("session").text(session);
  const auto [begin, end] = range.whole.value_or(std::pair(view.begin, view.end));
  json.key("begin").raw(secondsText(begin)).key("end").raw(secondsText(end));
  json.key("from").raw(secondsText(from)).key("to").raw(secondsText(to)).key("next");
  if (next) {
    json.raw(secondsText(*next));
  } else {
    json.null();
  }
  json.key("times").raw("[" + times + "]");
  appendTopics(json, columns);
  json.key("events").raw(events).endObject();
  return text;
}

} // namespace gk::gateway
