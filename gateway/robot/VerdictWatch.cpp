#include "gateway/robot/VerdictWatch.h"

#include "devices/meaning/EventWords.h"
#include "messages/json/JsonWriter.h"

#include <algorithm>
#include <utility>

namespace gk::gateway {

VerdictWatch::VerdictWatch(const Counters& counters, RecordingSource recording, StatusSource status)
    : fCounters(counters), fRecording(std::move(recording)), fStatus(std::move(status)) {}

bool VerdictWatch::look(GK::GKMicros now, const GK::GKMemoryStore* store) {
  devices::HostCondition host;
  for (const NoticeQueue::Loop& loop : fCounters.loops()) {
    host.loops.push_back({loop.module, loop.time});
  }
  host.deviceChange = std::max<GK::GKMicros>(fCounters.deviceChange(), 0);
  host.lostEvents = fCounters.droppedEvents.load(std::memory_order_relaxed);
  if (fRecording) {
    RecordingFigures recording = fRecording();
    host.recordingTrouble = std::move(recording.trouble);
    host.lostBlocks = recording.lostBlocks;
    host.lostMessages = recording.lostMessages;
  }
  if (fStatus) {
    for (const StatusRow& row : fStatus()) {
      host.modules.push_back({row.module, row.name, row.level, row.told()});
    }
  }
  const std::vector<devices::Matter>& matters = fVerdict.look(now, store, host);
  const std::lock_guard lock(fMutex);
  if (matters == fMatters) {
    return false;
  }
  fMatters = matters;
  return true;
}

std::vector<devices::Matter> VerdictWatch::matters() const {
  const std::lock_guard lock(fMutex);
  return fMatters;
}

std::string wordsJson() {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject().key("events").beginArray();
  for (const devices::EventWords& words : devices::eventWords()) {
    if (words.sentence.empty()) {
      continue;
    }
    json.beginObject().key("name").text(words.name).key("sentence").text(words.sentence);
    json.key("values").beginObject();
    for (const devices::ValueWords& value : words.values) {
      json.key(value.value).text(value.sentence);
    }
    json.endObject().key("unit").text(words.unit).key("digits").integer(words.digits);
    json.key("importance").integer(static_cast<int>(words.importance));
    json.key("importances").beginObject();
    for (const devices::ValueWords& value : words.values) {
      if (value.importance) {
        json.key(value.value).integer(static_cast<int>(*value.importance));
      }
    }
    json.endObject()
        .key("subject")
        .text(words.subject)
        .key("meaning")
        .text(words.meaning)
        .endObject();
  }
  json.endArray().endObject();
  return text;
}

} // namespace gk::gateway
