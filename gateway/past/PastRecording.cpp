#include "formats/mcap/Sink.h"
#include "formats/mcap/Writer.h"
#include "formats/run/RunFile.h"
#include "gateway/channels/Channels.h"
#include "gateway/past/PastView.h"
#include "messages/text/WallTime.h"

#include <algorithm>
#include <set>

// The past as a recording that can be played.

namespace gk::gateway {

namespace {

/// Samples of a recording for viewers, as of any recording.
constexpr GK::GKMicros kSamplePeriod = 100'000;
constexpr std::string_view kSettings = "Settings/";

/// The channels of a robot in a recording that lies in memory.
class PastWriter {
public:
  PastWriter(std::int64_t epoch, const formats::mcap::StringMap& about)
      : fWriter(fSink, {.library = about.at("version"), .apart = formats::kRunTopic}),
        fEpoch(epoch) {
    fWriter.addMetadata({formats::kRunMetadata, about});
    fRun = fWriter.addChannel(formats::kRunTopic, formats::kRunEncoding, 0);
  }

  void writeRun(formats::RunLogWriter& log) {
    if (!log.isEmpty()) {
      const std::uint64_t time = messages::nanosecondsSince1970(fEpoch, log.startTime());
      fWriter.write(fRun, time, time, log.take());
    }
  }

  void write(const Channels& channels, const std::vector<ChannelMessage>& messages) {
    for (const ChannelMessage& message : messages) {
      const auto [place, isNew] = fChannels.try_emplace(message.channel);
      if (isNew) {
        const Channel& channel = channels.all().at(message.channel - 1);
        const auto [schema, isNewSchema] = fSchemas.try_emplace(channel.schemaName);
        if (isNewSchema) {
          schema->second = fWriter.addSchema(channel.schemaName, "jsonschema", channel.schema);
        }
        place->second = fWriter.addChannel(channel.topic, "json", schema->second);
      }
      fWriter.write(place->second, message.time, message.time, message.payload);
    }
  }

  std::string finish() {
    fWriter.finish();
    return fSink.bytes();
  }

private:
  formats::mcap::MemorySink fSink;
  formats::mcap::Writer fWriter;
  const std::int64_t fEpoch;
  std::uint16_t fRun = 0;
  std::map<std::uint32_t, std::uint16_t> fChannels;
  std::map<std::string, std::uint16_t> fSchemas;
};

} // namespace

std::optional<std::string> Past::recording(GK::GKMicros last, std::int64_t epoch,
                                           formats::mcap::StringMap about,
                                           const std::vector<formats::Action>& first) {
  const View view = xView();
  if (view.pieces.empty()) {
    return std::nullopt;
  }
  const GK::GKMicros begin = last >= view.end - view.begin ? view.begin : view.end - last;
  const bool isContinued = view.isBeginGone || begin > view.begin;
  about.emplace("start", messages::wallTimeText(epoch + begin));
  about.emplace("begins", isContinued
                              ? "in the middle of a run: what the modules knew by then is missing"
                              : "with the run");
  PastWriter out(epoch + begin, about);

  constexpr GK::GKMicros perSecond = 1'000'000;
  const auto store = std::make_shared<GK::GKMemoryStore>();
  Channels channels(store, {(epoch + begin) / perSecond, (epoch + begin) % perSecond}, 0);
  std::vector<const GK::GKNotice*> events;
  for (const auto& piece : view.pieces) {
    for (const GK::GKNotice& event : piece->events) {
      // What was declared before is known all the same.
      if (event.time >= begin || event.kind == GK::GKNotice::Kind::Declare) {
        events.push_back(&event);
      }
    }
  }
  auto nextEvent = events.begin();
  const auto tellEventsTo = [&](GK::GKMicros time) {
    for (; nextEvent != events.end() && (*nextEvent)->time <= time; ++nextEvent) {
      GK::GKNotice event = **nextEvent;
      event.time = std::max<GK::GKMicros>(event.time - begin, 0);
      out.write(channels, channels.ofNotice(event));
    }
  };

  formats::RunLogWriter log;
  std::vector<GK::GKValue> state = view.base;
  std::optional<GK::GKMicros> now;
  std::set<std::size_t> changed;
  std::vector<formats::Action> actions;
  std::uint64_t ticks = 0;
  GK::GKMicros nextSample = 0;
  bool hasStarted = false;

  const auto start = [&] {
    hasStarted = true;
    std::size_t index = 0;
    for (const std::string& name : view.names) {
      log.add(formats::RunKey{index++, name});
    }
    if (view.store != nullptr) {
      formats::SetAction settings;
      for (const std::string& key : view.store->keys()) {
        if (key.starts_with(kSettings)) {
          settings.values.emplace_back(key, view.store->get(key).value_or(GK::GKValue()));
        }
      }
      if (!settings.values.empty()) {
        log.add(formats::RunAction{std::move(settings)});
      }
    }
    log.beginValues();
    for (std::size_t i = 0; i < state.size(); ++i) {
      const bool isThere = state[i].type() != GK::GKValue::Type::Invalid;
      if (isThere) {
        store->set(view.names[i], state[i]);
      }
      if (isThere && view.isInput[i]) {
        log.addValue(i, state[i]);
      }
    }
    log.endValues();
    log.add(formats::RunStart{true, isContinued});
    changed.clear();
    actions.insert(actions.begin(), first.begin(), first.end());
  };
  const auto finishTurn = [&] {
    if (!now || *now < begin) {
      actions.clear();
      return;
    }
    const GK::GKMicros time = *now - begin;
    if (!hasStarted) {
      start();
    } else if (time - log.startTime() >= kPieceTime) {
      out.writeRun(log);
    }
    log.add(formats::RunTurn{formats::kOutsideTask, time});
    log.beginValues();
    for (const std::size_t key : changed) {
      store->set(view.names[key], state[key]);
      if (view.isInput[key]) {
        log.addValue(key, state[key]);
      }
    }
    log.endValues();
    changed.clear();
    for (formats::Action& action : actions) {
      log.add(formats::RunAction{std::move(action)});
    }
    actions.clear();
    tellEventsTo(*now);
    ++ticks;
    if (time >= nextSample) {
      nextSample = time + kSamplePeriod;
      out.write(channels,
                channels.ofTick(time, view.module, ticks, [](std::uint32_t) { return true; }));
    }
  };
  view.walk(
      [&](GK::GKMicros time) {
        finishTurn();
        now = time;
        return true;
      },
      [&](const formats::RunValues& values) {
        for (const formats::RunValue& value : values.values) {
          state[value.key] = values.value(value);
          changed.insert(value.key);
        }
      },
      [&](const formats::Action& action) { actions.push_back(action); });
  finishTurn();
  tellEventsTo(view.end + kPieceTime);
  out.writeRun(log);
  return out.finish();
}

} // namespace gk::gateway