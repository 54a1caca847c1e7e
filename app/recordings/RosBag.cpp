#include "app/options/Command.h"
#include "app/recordings/RecordingActions.h"
#include "app/session/Complaints.h"
#include "app/session/FileTests.h"
#include "app/session/ProgressBar.h"
#include "app/session/ReplayHost.h"
#include "formats/bag/BagWriter.h"
#include "formats/files/OutputError.h"
#include "gk/GKClock.h"
#include "messages/ros/Mapper.h"
#include "runtime/host/Host.h"
#include "runtime/host/Library.h"
#include "runtime/output/PrintedLines.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace gk::app {

namespace {

namespace ros = messages::ros;

/// Puts into a bag what a run tells. The first tick's values of latched topics stand at its
/// beginning: players of bags give each topic the publisher that it had, and who plays one from its
/// start has them first. What was told before that tick waits for them.
class BagTaker final : public GK::GKObserver {
public:
  /// `failed` is called at most once, when nothing more can be written.
  BagTaker(formats::BagWriter& bag, const runtime::Host& host, std::function<void()> failed)
      : fBag(bag), fFailed(std::move(failed)),
        fMapper(host.store(), GK::GKClock::instance().wallTime(),
                GK::GKClock::instance().elapsed()) {}

  void onNotice(const GK::GKNotice& notice) override {
    xGuarded([&] { fMapper.ofNotice(notice, fSink); });
  }

  void onTick(GK::GKMicros time, const GK::GKTask& task) override {
    xGuarded([&] {
      const std::uint64_t number = ++fTicks[task.module];
      if (!fHasBegun) {
        fMapper.ofStart(time, fSink);
      }
      fMapper.ofTick(time, task.module, number, fSink);
      xBegin();
    });
  }

  /// After the run. Raises `OutputError` for what could not be written.
  void finish() {
    if (!fHasBegun) {
      xGuarded([&] {
        fMapper.ofStart(0, fSink);
        xBegin();
      });
    }
    if (fError) {
      std::rethrow_exception(fError);
    }
  }

private:
  struct Held {
    std::size_t topic = 0;
    std::uint64_t time = 0;
    std::string cdr;
  };

  /// Nothing leaves an observer: the run would end in the middle of a module.
  template <class Work> void xGuarded(const Work& work) noexcept {
    if (fError) {
      return;
    }
    try {
      work();
    } catch (...) {
      fError = std::current_exception();
      fFailed();
    }
  }

  void xTake(const ros::Sample& sample) {
    if (fHasBegun) {
      fBag.write(fMapper.topics()[sample.topic], sample.time, sample.cdr);
    } else {
      fHeld.push_back({sample.topic, sample.time, std::string(sample.cdr)});
    }
  }

  void xBegin() {
    if (std::exchange(fHasBegun, true)) {
      return;
    }
    const std::vector<Held> held = std::exchange(fHeld, {});
    const auto isLatched = [this](const Held& one) {
      return fMapper.topics()[one.topic].profile == ros::Profile::Latched;
    };
    std::uint64_t first = held.front().time;
    std::map<std::size_t, const Held*> latest;
    for (const Held& one : held) {
      first = std::min(first, one.time);
      if (isLatched(one)) {
        latest[one.topic] = &one;
      }
    }
    for (const auto& [topic, one] : latest) {
      fBag.write(fMapper.topics()[topic], first, one->cdr);
    }
    for (const Held& one : held) {
      if (!isLatched(one)) {
        fBag.write(fMapper.topics()[one.topic], one.time, one.cdr);
      }
    }
  }

  formats::BagWriter& fBag;
  const std::function<void()> fFailed;
  ros::Mapper fMapper;
  const ros::Sink fSink = [this](const ros::Sample& sample) { xTake(sample); };
  std::map<std::string, std::uint64_t, std::less<>> fTicks;
  bool fHasBegun = false;
  std::vector<Held> fHeld;
  std::exception_ptr fError;
};

/// Start, run and shutdown. Modules print to standard error.
void playInto(runtime::Host& host, const boost::shared_ptr<BagTaker>& taker) {
  const runtime::PrintedLines printed(nullptr);
  const boost::shared_ptr<GK::GKObserver> observers[] = {taker,
                                                         boost::make_shared<ProgressBar>(host)};
  const auto each = [&observers](const auto& work) {
    for (const auto& observer : observers) {
      work(observer);
    }
  };
  auto& list = GK::GKObserverList::instance();
  each([&list](const auto& observer) { list.add(observer); });
  const auto leave = [&] {
    host.shutdown();
    each([&list](const auto& observer) { list.remove(observer); });
  };
  try {
    host.start();
    host.run();
  } catch (...) {
    leave();
    throw;
  }
  leave();
}

} // namespace

int convertToBag(const std::string& file, const std::string& folder,
                 formats::mcap::Compression compression) {
  SessionOptions session;
  session.files = {file};
  const FileTests tests = readFileTests(session.files, false);
  applyFileOptions(tests, session);
  const runtime::HostOptions options = replayHost(session, tests, false);
  formats::BagWriter bag(folder, compression, "gksensors " GK_VERSION);
  zu::log::setConsoleLevel(0);
  int code = kSuccess;
  {
    runtime::Host host(options);
    const auto taker = boost::make_shared<BagTaker>(bag, host, [&host] { host.requestEnd(); });
    try {
      playInto(host, taker);
    } catch (const runtime::LoadError& error) {
      complain(error.what());
      return kFailure;
    }
    taker->finish();
    for (const std::string& problem : host.inputProblems()) {
      complain(problem);
    }
    code = host.isInputComplete() ? kSuccess : kFailure;
  }
  bag.finish();
  fmt::print("{}: {} messages of {} topics\n", folder, bag.messages(), bag.topics());
  return code;
}

} // namespace gk::app
