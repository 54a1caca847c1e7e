#include "extensions/ros2/Publisher.h"

#include "extensions/ros2/Participant.h"
#include "gk/GKClock.h"
#include "messages/ros/Mapper.h"
#include "messages/ros/Messages.h"
#include "messages/ros/Types.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <functional>
#include <optional>
#include <pthread.h>
#include <string>
#include <utility>
#include <vector>

namespace gk::ros2 {

namespace {

namespace ros = messages::ros;

constexpr const char* kCategory = "extensions.ros2";
/// What ROS calls the program: the name of its node.
constexpr const char* kNode = "gk";
constexpr const char* kGraphTopic = "ros_discovery_info";
/// Without ticks and events the thread looks up so often.
constexpr std::chrono::milliseconds kPatience{100};
/// Readers come and go slowly, and to ask for them costs a lock each.
constexpr std::chrono::milliseconds kReadersPause{50};
/// What the clock shows and what it was when the mapper was told may differ by this, microseconds.
constexpr std::int64_t kClockTolerance = 1000;
/// Complaints of DDS that are passed on: strangers may cause any number.
constexpr int kMostComplaints = 20;

std::string ddsTopic(const std::string& name) {
  return "rt" + name;
}

/// The computer's time, in microseconds since 1970.
std::int64_t wallMicros() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

GK::GKWallTime wallTime(std::int64_t micros) {
  return {micros / 1'000'000, micros % 1'000'000};
}

Offer offerOf(ros::Profile profile) {
  const ros::Qos qos = ros::qosOf(profile);
  return {.isLatched = qos.isTransientLocal,
          .depth = static_cast<int>(qos.depth),
          .lifespan = std::chrono::seconds(qos.lifespan)};
}

/// Passes complaints of DDS on to the log, so many at most. Any thread.
std::function<void(const std::string&)> complaints() {
  auto count = std::make_shared<std::atomic<int>>(0);
  return [count](const std::string& line) {
    const int number = count->fetch_add(1);
    if (number < kMostComplaints) {
      zu::log::warning(kCategory, "dds") << line;
    } else if (number == kMostComplaints) {
      zu::log::warning(kCategory, "dds") << "more complaints of DDS are left out";
    }
  };
}

} // namespace

/// What the thread does, and what it alone may use.
class Publisher::Work {
public:
  Work(Publisher& publisher, const Settings& settings,
       std::shared_ptr<const GK::GKMemoryStore> store)
      : fPublisher(publisher), fOffset(xOffset()),
        fMapper(std::move(store), wallTime(fOffset), 0,
                {.rate = settings.rate, .isTf = settings.isTf}),
        fParticipant(settings.network.domain, settings.configuration, complaints()),
        fGraph(settings.graph) {
    fNode.participant = fParticipant.gid();
    fNode.space = settings.space.empty() ? "/" : settings.space;
    fNode.name = kNode;
    for (const ros::Topic& topic : fMapper.topics()) {
      const Participant::Handle writer =
          fParticipant.addWriter(ddsTopic(ros::nameIn(settings.space, topic)), topic.type->ddsName,
                                 topic.type->hash, offerOf(topic.profile));
      fWriters.push_back({writer, ros::qosOf(topic.profile).isTransientLocal, false});
      fNode.writers.push_back(fParticipant.gid(writer));
    }
    fSink = [this](const ros::Sample& sample) { xSend(fWriters[sample.topic].handle, sample.cdr); };
    // A latched message is kept for readers that are still to come.
    fIsWanted = [this](std::size_t topic) {
      return fWriters[topic].isLatched || fWriters[topic].isRead;
    };
    if (fGraph.isWatching()) {
      const ros::Type& type = ros::typeOf<ros::ParticipantEntitiesInfo>();
      fGraphReader = fParticipant.addReader(kGraphTopic, type.ddsName, type.hash);
    }
    fMapper.ofStart(GK::GKClock::instance().elapsed(), fSink, fIsWanted);
    xTellGraph();
  }

  void publish(const Feed::Batch& batch) {
    xSetClock();
    xLookForReaders();
    for (const GK::GKNotice& notice : batch.notices) {
      fMapper.ofNotice(notice, fSink, fIsWanted);
    }
    for (const Feed::TickTimes& tick : batch.times) {
      fMapper.ofTickTimes(tick.times, batch.ticks[tick.loop].module);
    }
    fNumbers.resize(batch.ticks.size());
    for (std::size_t i = 0; i < batch.ticks.size(); ++i) {
      const Feed::Tick& tick = batch.ticks[i];
      if (std::exchange(fNumbers[i], tick.number) != tick.number) {
        fMapper.ofTick(tick.time, tick.module, tick.number, fSink, fIsWanted);
      }
    }
    xWatchGraph();
    xReportLosses();
  }

private:
  struct Writer {
    Participant::Handle handle;
    bool isLatched;
    /// Somebody reads what it writes.
    bool isRead;
  };

  /// What the computer's time is ahead of the run's.
  static std::int64_t xOffset() { return wallMicros() - GK::GKClock::instance().elapsed(); }

  /// Stamps are the computer's time, however fast the run's goes and whoever sets the former.
  void xSetClock() {
    const std::int64_t offset = xOffset();
    if (std::abs(offset - fOffset) > kClockTolerance) {
      fOffset = offset;
      fMapper.setClock(wallTime(offset), 0);
    }
  }

  void xSend(Participant::Handle writer, std::string_view bytes) {
    auto& count = fParticipant.write(writer, bytes) ? fPublisher.fMessages : fPublisher.fRefused;
    count.fetch_add(1, std::memory_order_relaxed);
  }

  void xLookForReaders() {
    const auto now = std::chrono::steady_clock::now();
    if (now < fReadersDue) {
      return;
    }
    fReadersDue = now + kReadersPause;
    std::uint32_t all = 0;
    for (Writer& writer : fWriters) {
      const std::uint32_t readers = fParticipant.readers(writer.handle);
      writer.isRead = readers > 0;
      all += readers;
    }
    fPublisher.fReaders.store(all, std::memory_order_relaxed);
  }

  void xWatchGraph() {
    if (!fGraphReader) {
      return;
    }
    const std::optional<GidSize> before = fGraph.size();
    fParticipant.take(*fGraphReader,
                      [this](std::span<const std::uint8_t> message) { fGraph.see(message); });
    if (fGraph.isMixed()) {
      zu::log::warning(kCategory, "graph")
          << "programs of older and newer releases of ROS are here together, which take each "
             "other's lists of nodes wrongly: ours is not told (ros2 node list), topics are";
      fParticipant.remove(*std::exchange(fGraphReader, std::nullopt));
    }
    if (fGraph.size() != before) {
      xTellGraph();
    }
  }

  /// Tells who we are, or nothing more.
  void xTellGraph() {
    if (fGraphWriter) {
      fParticipant.remove(*std::exchange(fGraphWriter, std::nullopt));
    }
    if (!fGraph.size()) {
      return;
    }
    const ros::Type& type = ros::typeOf<ros::ParticipantEntitiesInfo>();
    fGraphWriter = fParticipant.addWriter(kGraphTopic, type.ddsName, type.hash,
                                          {.isLatched = true, .depth = 1});
    fParticipant.write(*fGraphWriter, graphMessage(fNode, *fGraph.size()));
  }

  /// Once: what is in the log is itself something to publish.
  void xReportLosses() {
    const std::uint64_t dropped = fPublisher.fFeed->dropped();
    if (dropped > 0 && !std::exchange(fIsLossTold, true)) {
      zu::log::warning(kCategory, "publish")
          << "more happens than can be published: " << dropped
          << " events and log lines are lost so far; GKRos2.status counts on";
    }
  }

  Publisher& fPublisher;
  std::int64_t fOffset;
  ros::Mapper fMapper;
  Participant fParticipant;
  GraphFormat fGraph;
  GraphNode fNode;
  std::vector<Writer> fWriters;
  ros::Mapper::Sink fSink;
  ros::Mapper::IsWanted fIsWanted;
  std::optional<Participant::Handle> fGraphReader;
  std::optional<Participant::Handle> fGraphWriter;
  std::vector<std::uint64_t> fNumbers;
  std::chrono::steady_clock::time_point fReadersDue;
  bool fIsLossTold = false;
};

Publisher::Publisher(const Settings& settings, std::shared_ptr<const GK::GKMemoryStore> store)
    : fFeed(boost::make_shared<Feed>()) {
  std::future<void> started = fStarted.get_future();
  fThread = std::thread([this, settings, store = std::move(store)] { xRun(settings, store); });
  try {
    started.get();
  } catch (...) {
    fThread.join();
    throw;
  }
  GK::GKObserverList::instance().add(fFeed);
}

Publisher::~Publisher() {
  GK::GKObserverList::instance().remove(fFeed);
  fFeed->end();
  fThread.join();
}

Publisher::Figures Publisher::figures() const {
  return {fMessages.load(), fRefused.load(), fFeed->dropped(), fReaders.load()};
}

void Publisher::xRun(const Settings& settings, std::shared_ptr<const GK::GKMemoryStore> store) {
  ::pthread_setname_np(::pthread_self(), "gkros2");
  std::optional<Work> work;
  try {
    work.emplace(*this, settings, std::move(store));
    fStarted.set_value();
  } catch (...) {
    fStarted.set_exception(std::current_exception());
    return;
  }
  try {
    Feed::Batch batch;
    while (!batch.isEnd) {
      fFeed->take(batch, kPatience);
      work->publish(batch);
    }
  } catch (const std::exception& error) {
    // The robot goes on; what would be published is dropped and counted.
    zu::log::error(kCategory, "publish") << "nothing is published any more: " << error.what();
  }
}

} // namespace gk::ros2
