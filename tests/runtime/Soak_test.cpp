#include "formats/mcap/Writer.h"
#include "runtime/host/Host.h"
#include "runtime/output/Reporter.h"
#include "runtime/recording/Recorder.h"
#include "support/Program.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>

// A long run, by default an hour of the robot's time: recordings in a loop, subscriptions that come
// and go, everything written out. GK_SOAK_HOURS makes it longer.

namespace {

constexpr GK::GKMicros kMinute = 60'000'000;
constexpr GK::GKMicros kHour = 60 * kMinute;
constexpr GK::GKMicros kPeriod = 20'000;
constexpr std::int64_t kAllowedGrowth = 1 << 20;
/// What waits for the disk, more or less of it each time that one looks: blocks, messages, a chunk.
constexpr std::int64_t kAllowedToWait =
    3 * static_cast<std::int64_t>(gk::formats::mcap::Writer::kChunkSize);
/// What zstd takes once for a chunk that is larger than those before it, when the disk has become
/// slower: tables of up to eight bytes for each of the chunk's.
constexpr std::int64_t kAllowedToCompress =
    8 * static_cast<std::int64_t>(gk::formats::mcap::Writer::kChunkSize);

/// Whether the process's memory is what the program needs: a sanitizer keeps freed memory. (What
/// leaks it reports itself.)
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryIsOurs = false;
#else
constexpr bool kMemoryIsOurs = true;
#endif

GK::GKMicros duration() {
  const char* hours = std::getenv("GK_SOAK_HOURS");
  return (hours != nullptr ? std::atoll(hours) : 1) * kHour;
}

/// Resident memory in bytes.
std::int64_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::int64_t size = 0;
  std::int64_t resident = 0;
  statm >> size >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

std::int64_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// Where lines go that nobody keeps.
class NullOutlet : public gk::runtime::Outlet {
public:
  void write(std::string_view) override {}
  void flush() override {}
};

/// By then two parts of the recording have been written, and every buffer has been full once.
constexpr GK::GKMicros kWarmUp = 15 * kMinute;
/// Length of the recording's parts: none begins when the process is looked at.
constexpr GK::GKMicros kPart = 290'000'000;

/// Looks at the process once it is warm, and every minute afterwards.
class Meter : public GK::GKObserver {
public:
  void onNotice(const GK::GKNotice&) override {}

  void onTick(GK::GKMicros time, const GK::GKTask&) override {
    EXPECT_EQ(time, static_cast<GK::GKMicros>(ticks) * kPeriod);
    ++ticks;
    if (time == kWarmUp) {
      residentWhenWarm = residentBytes();
      descriptorsWhenWarm = openDescriptors();
    }
    if (time % kMinute == 0) {
      residentAtTheEnd = residentBytes();
      descriptorsAtTheEnd = openDescriptors();
    }
  }

  std::uint64_t ticks = 0;
  std::int64_t residentWhenWarm = 0;
  std::int64_t residentAtTheEnd = 0;
  std::int64_t descriptorsWhenWarm = 0;
  std::int64_t descriptorsAtTheEnd = 0;
};

/// With a recording, or without.
class Soak : public testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(Recorded, Soak, testing::Bool());

TEST_P(Soak, ALongRunLosesNoTickNoMemoryAndNoDescriptor) {
  const bool isRecorded = GetParam();
  zu::log::setConsoleLevel(0);
  gk::runtime::HostOptions options;
  options.files = {GK_SOURCE_DIR "/data/biped_walk.csv", GK_SOURCE_DIR "/data/imu_fall_forward.csv",
                   GK_SOURCE_DIR "/tests/runtime/soak.jsonl"};
  options.libraries = {GK_TEST_LIBRARIES "/libListener.so", GK_LIBRARY};
  options.isVirtual = true;
  options.isLoop = true;
  options.until = duration();
  // Parts come and go: the disk is not what is looked at.
  const gk::test::TemporaryFolder folder;
  gk::runtime::RecorderOptions recording;
  recording.path = folder.file("soak.mcap");
  recording.splitTime = kPart;
  recording.mustKeepAll = true;
  boost::shared_ptr<gk::runtime::Recorder> recorder;
  if (isRecorded) {
    recorder = boost::make_shared<gk::runtime::Recorder>(recording);
    options.recorder = recorder->run();
  }
  gk::runtime::Host host(options);
  host.addReporter(boost::make_shared<gk::runtime::JsonReporter>(std::make_unique<NullOutlet>(),
                                                                 gk::formats::LineKinds::all()));
  const auto meter = boost::make_shared<Meter>();
  GK::GKObserverList::instance().add(meter);
  host.start();
  if (isRecorded) {
    GK::GKObserverList::instance().add(recorder);
    recorder->confirm();
  }
  host.run();
  host.shutdown();
  GK::GKObserverList::instance().remove(meter);
  if (isRecorded) {
    GK::GKObserverList::instance().remove(recorder);
    recorder->finish();
    EXPECT_EQ(recorder->files().size(), static_cast<std::size_t>(duration() / kPart) + 1);
    EXPECT_EQ(recorder->losses().blocks, 0U);
  }

  EXPECT_EQ(meter->ticks, static_cast<std::uint64_t>(duration() / kPeriod) + 1);
  EXPECT_EQ(host.statistics().ticks, meter->ticks);
  EXPECT_GT(host.statistics().events, meter->ticks / 1000);
  EXPECT_EQ(meter->descriptorsAtTheEnd, meter->descriptorsWhenWarm);
  const std::int64_t growth = meter->residentAtTheEnd - meter->residentWhenWarm;
  if (kMemoryIsOurs) {
    EXPECT_LE(growth, kAllowedGrowth + (isRecorded ? kAllowedToWait + kAllowedToCompress : 0));
  }
  std::cout << meter->ticks << " ticks, " << host.statistics().events << " events, resident "
            << meter->residentWhenWarm / 1024 << " KiB after a quarter of an hour, "
            << meter->residentAtTheEnd / 1024 << " KiB at the end, " << meter->descriptorsAtTheEnd
            << " descriptors\n";
}

} // namespace
