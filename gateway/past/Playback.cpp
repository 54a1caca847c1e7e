#include "gateway/past/Playback.h"

#include "messages/json/JsonWriter.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace gk::gateway {

namespace {

namespace json = boost::json;

void appendTimeOf(messages::JsonWriter& writer, GK::GKMicros time) {
  std::string text;
  messages::appendSeconds(text, time);
  writer.raw(text);
}

void appendState(messages::JsonWriter& writer, const PlaybackState& state) {
  appendTimeOf(writer.key("time"), state.time);
  appendTimeOf(writer.key("begin"), state.begin);
  appendTimeOf(writer.key("end"), state.end);
  writer.key("speed").real(state.speed).key("playing").boolean(state.isPlaying).key("loop");
  if (state.loop) {
    writer.beginArray();
    appendTimeOf(writer, state.loop->first);
    appendTimeOf(writer, state.loop->second);
    writer.endArray();
  } else {
    writer.null();
  }
}

/// The parameters in their order, whether they come with names or without. Raises `FormatError`.
std::vector<json::value> paramsOf(const json::value& params,
                                  const std::vector<std::string>& names) {
  std::vector<json::value> values;
  if (params.is_array()) {
    values.assign(params.get_array().begin(), params.get_array().end());
  } else if (params.is_object()) {
    for (const std::string& name : names) {
      if (const json::value* value = params.get_object().if_contains(name)) {
        values.push_back(*value);
      }
    }
  }
  return values;
}

void expectCount(const std::vector<json::value>& values, std::size_t count, const char* signature) {
  if (values.size() != count) {
    throw messages::FormatError(std::string("takes ") + signature);
  }
}

double numberOf(const json::value& value, const char* name) {
  if (!value.is_number() || !std::isfinite(value.to_number<double>())) {
    throw messages::FormatError(std::string(name) + ": must be a number");
  }
  return value.to_number<double>();
}

GK::GKMicros timeOf(const json::value& value, const char* name) {
  return messages::toMicros(
             std::clamp(numberOf(value, name), -messages::kMaxSeconds, messages::kMaxSeconds))
      .value_or(0);
}

void step(Playback& playback, const std::vector<json::value>& values) {
  expectCount(values, 2, "(\"event\" or \"tick\", N)");
  const bool isEvent = values[0] == "event";
  if (!isEvent && values[0] != "tick") {
    throw messages::FormatError("what: must be \"event\" or \"tick\"");
  }
  constexpr double most = 1e6;
  const double count = numberOf(values[1], "N");
  if (count != std::floor(count) || std::abs(count) > most) {
    throw messages::FormatError("N: must be a whole number from -1000000 to 1000000");
  }
  playback.step(isEvent ? Playback::Step::Event : Playback::Step::Tick, static_cast<int>(count));
}

void loop(Playback& playback, const std::vector<json::value>& values) {
  if (values.size() == 1 && values[0].is_null()) {
    playback.setLoop(std::nullopt);
    return;
  }
  expectCount(values, 2, "(FROM, TO) or (null)");
  const std::pair range(timeOf(values[0], "FROM"), timeOf(values[1], "TO"));
  if (range.first >= range.second) {
    throw messages::FormatError("FROM: must be before TO");
  }
  playback.setLoop(range);
}

} // namespace

std::string playbackJson(const PlaybackState& state) {
  std::string text;
  messages::JsonWriter writer(text);
  writer.beginObject();
  appendState(writer, state);
  writer.endObject();
  return text;
}

std::string playbackJson(const PlaybackState& state, const Playback::Facts& facts, bool didSeek) {
  std::string text;
  messages::JsonWriter writer(text);
  writer.beginObject();
  appendState(writer, state);
  writer.key("didSeek").boolean(didSeek).key("file").text(facts.file);
  appendTimeOf(writer.key("recorded_s"), facts.epoch);
  writer.key("indexed").boolean(facts.isIndexed).endObject();
  return text;
}

void addPlaybackMethods(HostMethods& methods, Playback& playback) {
  const auto add = [&](const char* name, std::vector<std::string> names,
                       std::function<void(const std::vector<json::value>&)> work) {
    methods.add("Playback", name,
                [&playback, names = std::move(names),
                 work = std::move(work)](const json::value& params, const HostMethods::Done& done) {
                  try {
                    work(paramsOf(params, names));
                  } catch (const messages::FormatError& error) {
                    done({std::nullopt, RpcError{kInvalidParams, error.what(), {}}, {}});
                    return;
                  }
                  done({std::nullopt, std::nullopt, playbackJson(playback.state())});
                });
  };
  using Values = std::vector<json::value>;
  add("state", {}, [](const Values& values) { expectCount(values, 0, "()"); });
  add("play", {}, [&playback](const Values& values) {
    expectCount(values, 0, "()");
    playback.play();
  });
  add("pause", {}, [&playback](const Values& values) {
    expectCount(values, 0, "()");
    playback.pause();
  });
  add("seek", {"T"}, [&playback](const Values& values) {
    expectCount(values, 1, "(T)");
    playback.seek(timeOf(values[0], "T"));
  });
  add("speed", {"X"}, [&playback](const Values& values) {
    expectCount(values, 1, "(X)");
    playback.setSpeed(numberOf(values[0], "X"));
  });
  add("step", {"what", "N"}, [&playback](const Values& values) { step(playback, values); });
  add("loop", {"FROM", "TO"}, [&playback](const Values& values) { loop(playback, values); });
}

} // namespace gk::gateway
