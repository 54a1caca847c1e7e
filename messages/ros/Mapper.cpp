#include "messages/ros/Mapper.h"

#include "messages/json/EventJson.h"
#include "messages/json/JsonText.h"
#include "messages/json/JsonWriter.h"
#include "messages/keys/Subjects.h"
#include "messages/ros/BodyMessages.h"
#include "messages/ros/Diagnostics.h"
#include "messages/ros/Types.h"
#include "messages/ros/Urdf.h"
#include "messages/text/Utf8.h"
#include "messages/text/WallTime.h"
#include "zu/log.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

namespace gk::messages::ros {

namespace {

constexpr GK::GKMicros kMicrosPerSecond = 1'000'000;

constexpr std::string_view kPoseEvent = "robotPoseChanged";
constexpr std::string_view kFloorEvent = "footContactChanged";
constexpr std::string_view kTouchSubject = "/touch";

std::uint8_t rosLevel(int level) {
  switch (level) {
  case zu::log::Fatal:
    return Log::kFatal;
  case zu::log::Error:
    return Log::kError;
  case zu::log::Warning:
    return Log::kWarn;
  case zu::log::Info:
    return Log::kInfo;
  default:
    return Log::kDebug;
  }
}

/// What readers of any language take as a text: valid UTF-8 without a zero.
void putText(std::string& target, std::string_view text) {
  target.clear();
  while (!text.empty()) {
    std::size_t length = text.front() == '\0' ? 0 : characterLength(text);
    if (length == 0) {
      target += "\xEF\xBF\xBD";
      length = 1;
    } else {
      target += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
}

} // namespace

class Mapper::Impl {
public:
  Impl(std::shared_ptr<const GK::GKMemoryStore> store, std::int64_t epoch,
       const MapperOptions& options)
      : fStore(std::move(store)), fEpoch(epoch),
        fInterval(static_cast<GK::GKMicros>(static_cast<double>(kMicrosPerSecond) /
                                            std::max(options.rate, kLeastRate))),
        fBody(fTopics, options.isTf), fDiagnostics(fTopics), fPose(std::string(kPoseEvent)),
        fFloor(std::string(kFloorEvent)) {
    fDescriptionTopic = xAdd<String>("/robot_description", Profile::Latched);
    fPoseTopic = xAdd<String>("/pose_name", Profile::Latched);
    fFloorTopic = xAdd<Bool>("/foot_contact", Profile::Latched);
    fEventsTopic = xAdd<String>("/events", Profile::Burst);
    fLogTopic = xAdd<Log>("/rosout", Profile::Log, true);
    const auto subject = std::ranges::find(subjects(), kTouchSubject, &Subject::topic);
    for (const SubjectField& field : subject->fields) {
      const std::string name = std::string(kTouchSubject).append("/").append(field.name);
      fTouches.push_back({xAdd<Bool>(name, Profile::Latched), KeyCell(field.key), std::nullopt});
    }
  }

  const std::vector<Topic>& topics() const noexcept { return fTopics; }
  void setEpoch(std::int64_t epoch) noexcept { fEpoch = epoch; }
  Diagnostics& diagnostics() noexcept { return fDiagnostics; }

  void ofStart(GK::GKMicros time, const Sink& sink, const IsWanted& isWanted) {
    const Outlet out = xOutlet(time, sink, isWanted);
    fBody.sendFixedFrames(out);
    xSendDescription(out);
  }

  void ofNotice(const GK::GKNotice& notice, const Sink& sink, const IsWanted& isWanted) {
    using Kind = GK::GKNotice::Kind;
    const Outlet out = xOutlet(notice.time, sink, isWanted);
    if (notice.kind == Kind::Event || notice.kind == Kind::MicroEvent) {
      xTellEvent(notice, out);
    } else if (notice.kind == Kind::Log && out.wants(fLogTopic)) {
      fLog.stamp = out.stamp();
      fLog.level = rosLevel(notice.level);
      putText(fLog.name, notice.name);
      putText(fLog.msg, notice.text);
      putText(fLog.function, notice.owner);
      out.send(fLogTopic, fLog);
    }
  }

  void ofTick(GK::GKMicros time, std::string_view module, std::uint64_t number, const Sink& sink,
              const IsWanted& isWanted) {
    const Outlet out = xOutlet(time, sink, isWanted);
    const GK::GKMicros second = time / kMicrosPerSecond;
    const bool isNewSecond = second != std::exchange(fSecond, second);
    if (isNewSecond) {
      xLookForKeys();
    }
    xTellTouches(out);
    if (std::exchange(fIsFirst, false)) {
      xTellFormerEvents(out);
    }
    fDiagnostics.ofTick(time, module, number);
    if (isNewSecond) {
      fBody.sendTemperatures(out);
      fDiagnostics.send(time, out);
    }
    if (xIsDue(time)) {
      fBody.sendStreams(*fStore, out);
    }
  }

  void latched(std::size_t topic, GK::GKMicros time, const Sink& sink) {
    if (topic >= fTopics.size() || fTopics[topic].profile != Profile::Latched) {
      return;
    }
    xLookForKeys();
    const IsWanted all;
    const Outlet out = xOutlet(time, sink, all);
    if (topic == fDescriptionTopic) {
      xSendDescription(out);
    } else if (topic == fPoseTopic) {
      xSendPose(fPose.value(), out);
    } else if (topic == fFloorTopic) {
      xSendFloor(fFloor.value(), out);
    } else if (const auto touch = std::ranges::find(fTouches, topic, &Touch::topic);
               touch != fTouches.end()) {
      if (const std::optional<GK::GKValue> value = touch->key.value()) {
        out.send(topic, Bool{isAboveZero(*value)});
      }
    } else {
      fBody.sendLatched(topic, out);
    }
  }

private:
  static constexpr double kLeastRate = 1e-3;

  struct Touch {
    std::size_t topic;
    KeyCell key;
    std::optional<bool> told;
  };

  template <class M> std::size_t xAdd(std::string name, Profile profile, bool isGlobal = false) {
    fTopics.push_back({std::move(name), &typeOf<M>(), profile, isGlobal});
    return fTopics.size() - 1;
  }

  Outlet xOutlet(GK::GKMicros time, const Sink& sink, const IsWanted& isWanted) {
    return {fBuffer, nanosecondsSince1970(fEpoch, std::max<GK::GKMicros>(time, 0)), sink, isWanted};
  }

  void xLookForKeys() {
    fBody.lookForKeys(*fStore);
    fDiagnostics.lookForKeys(*fStore);
    for (Touch& touch : fTouches) {
      touch.key.lookFor(*fStore);
    }
    fPose.lookFor(*fStore);
    fFloor.lookFor(*fStore);
  }

  /// Ticks come a little early or late; on the average no more are due than were asked for.
  bool xIsDue(GK::GKMicros time) {
    constexpr GK::GKMicros part = 10;
    const bool wentBack = fDue > time + 2 * fInterval;
    if (wentBack) {
      fDue = time;
    } else if (time < fDue - fInterval / part) {
      return false;
    }
    fDue = std::max(fDue + fInterval, time);
    return true;
  }

  void xTellEvent(const GK::GKNotice& notice, const Outlet& out) {
    if (out.wants(fEventsTopic)) {
      fText.data.clear();
      JsonWriter json(fText.data);
      json.beginObject().key("name").text(notice.name);
      appendEvent(json, notice);
      json.endObject();
      out.send(fEventsTopic, fText);
    }
    if (notice.name == kPoseEvent) {
      fIsPoseTold = true;
      if (out.wants(fPoseTopic)) {
        xSendPose(notice.value, out);
      }
    } else if (notice.name == kFloorEvent) {
      fIsFloorTold = true;
      if (out.wants(fFloorTopic)) {
        xSendFloor(notice.value, out);
      }
    }
  }

  void xTellTouches(const Outlet& out) {
    for (Touch& touch : fTouches) {
      const std::optional<GK::GKValue> value = touch.key.value();
      if (!value) {
        continue;
      }
      const bool isTouched = isAboveZero(*value);
      if (touch.told != isTouched) {
        touch.told = isTouched;
        if (out.wants(touch.topic)) {
          out.send(touch.topic, Bool{isTouched});
        }
      }
    }
  }

  /// What was raised before anybody listened.
  void xTellFormerEvents(const Outlet& out) {
    if (!fIsPoseTold && out.wants(fPoseTopic)) {
      xSendPose(fPose.value(), out);
    }
    if (!fIsFloorTold && out.wants(fFloorTopic)) {
      xSendFloor(fFloor.value(), out);
    }
  }

  void xSendDescription(const Outlet& out) {
    if (out.wants(fDescriptionTopic)) {
      out.send(fDescriptionTopic, String{robotUrdf()});
    }
  }

  void xSendPose(const std::optional<GK::GKValue>& value, const Outlet& out) {
    if (value && value->type() == GK::GKValue::Type::String) {
      putText(fText.data, value->toString());
      out.send(fPoseTopic, fText);
    }
  }

  void xSendFloor(const std::optional<GK::GKValue>& value, const Outlet& out) {
    if (value) {
      out.send(fFloorTopic, Bool{isAboveZero(*value)});
    }
  }

  const std::shared_ptr<const GK::GKMemoryStore> fStore;
  /// Microseconds since 1970 at time 0 of the clock.
  std::int64_t fEpoch;
  const GK::GKMicros fInterval;
  std::vector<Topic> fTopics;
  BodyMessages fBody;
  Diagnostics fDiagnostics;
  std::vector<Touch> fTouches;
  KeyCell fPose;
  KeyCell fFloor;
  std::size_t fDescriptionTopic = 0;
  std::size_t fPoseTopic = 0;
  std::size_t fFloorTopic = 0;
  std::size_t fEventsTopic = 0;
  std::size_t fLogTopic = 0;

  /// The present second of the clock, and when streams are due.
  GK::GKMicros fSecond = -1;
  GK::GKMicros fDue = 0;
  bool fIsFirst = true;
  bool fIsPoseTold = false;
  bool fIsFloorTold = false;

  // Kept for their memory.
  std::string fBuffer;
  String fText;
  Log fLog;
};

Mapper::Mapper(std::shared_ptr<const GK::GKMemoryStore> store, const GK::GKWallTime& wall,
               GK::GKMicros elapsed, const MapperOptions& options)
    : fImpl(std::make_unique<Impl>(std::move(store), epochOf(wall, elapsed), options)) {}

Mapper::~Mapper() = default;

const std::vector<Topic>& Mapper::topics() const noexcept {
  return fImpl->topics();
}

std::size_t Mapper::find(std::string_view name) const noexcept {
  return static_cast<std::size_t>(std::ranges::find(topics(), name, &Topic::name) -
                                  topics().begin());
}

void Mapper::setClock(const GK::GKWallTime& wall, GK::GKMicros elapsed) {
  fImpl->setEpoch(epochOf(wall, elapsed));
}

void Mapper::ofStart(GK::GKMicros time, const Sink& sink, const IsWanted& isWanted) {
  fImpl->ofStart(time, sink, isWanted);
}

void Mapper::ofNotice(const GK::GKNotice& notice, const Sink& sink, const IsWanted& isWanted) {
  fImpl->ofNotice(notice, sink, isWanted);
}

void Mapper::ofTick(GK::GKMicros time, std::string_view module, std::uint64_t number,
                    const Sink& sink, const IsWanted& isWanted) {
  fImpl->ofTick(time, module, number, sink, isWanted);
}

void Mapper::ofTickTimes(const GK::GKTickTimes& times, std::string_view module) {
  fImpl->diagnostics().ofTickTimes(times, module);
}

void Mapper::latched(std::size_t topic, GK::GKMicros time, const Sink& sink) {
  fImpl->latched(topic, time, sink);
}

} // namespace gk::messages::ros
