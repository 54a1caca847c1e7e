#include "app/play/Player.h"

#include "gateway/past/Past.h"
#include "gk/GKObserver.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iterator>

namespace gk::app {

namespace {

using gateway::PlaybackState;

/// How often the clock is moved on, and what it may pass as fast as possible without looking.
constexpr std::chrono::milliseconds kFrame{10};
constexpr GK::GKMicros kFastFrame = 500'000;

} // namespace

Player::Player(const std::string& path, const PlayerStart& start)
    : fName(std::filesystem::path(path).filename()), fOriginal(path), fTape(fOriginal),
      fClock(std::make_shared<PlayClock>(fTape.epoch())), fLook(fOriginal) {
  fState.begin = fTape.begin();
  fState.end = fTape.end();
  fState.time = xClamped(start.time.value_or(fState.begin));
  fState.speed = start.speed;
  fState.isPlaying = !start.isPaused;
  fClock->set(fState.time);
}

Player::~Player() {
  stop();
}

void Player::begin(boost::shared_ptr<GK::GKMemory> memory) {
  fMemory = std::move(memory);
  xJump(fState.time);
  // Whoever subscribes is shown what is there now, even where nothing goes on.
  GK::GKObserverList::instance().notifyTick({fTape.module(), GK::GKTask::kLoopMethod});
  fIndex = std::make_unique<RunIndex>(fOriginal, [this] {
    const std::lock_guard lock(fMutex);
    fWish.isNews = true;
    fWish.isIndexed = true;
    fWake.notify_all();
  });
  fThread = std::thread([this] { xPlay(); });
}

void Player::stop() {
  {
    const std::lock_guard lock(fMutex);
    fIsEnding = true;
    fWake.notify_all();
  }
  if (fThread.joinable()) {
    fThread.join();
  }
  fIndex.reset();
  fMemory.reset();
}

PlaybackState Player::state() const {
  const std::lock_guard lock(fMutex);
  return fState;
}

gateway::Playback::Facts Player::facts() const {
  return {fName, fTape.epoch(), fIndex != nullptr && fIndex->isDone()};
}

GK::GKMicros Player::xClamped(GK::GKMicros time) const {
  return std::clamp(time, fState.begin, fState.end);
}

void Player::play() {
  const std::lock_guard lock(fMutex);
  if (fState.time >= fState.end) {
    fState.time = fState.loop ? fState.loop->first : fState.begin;
    fWish.seek = fState.time;
  }
  fState.isPlaying = true;
  fWish.isNews = true;
  fWake.notify_all();
}

void Player::pause() {
  const std::lock_guard lock(fMutex);
  fState.isPlaying = false;
  fWish.isNews = true;
  fWake.notify_all();
}

void Player::seek(GK::GKMicros time) {
  const std::lock_guard lock(fMutex);
  fState.time = xClamped(time);
  fWish.seek = fState.time;
  fWish.advance.reset();
  fWake.notify_all();
}

void Player::setSpeed(double speed) {
  const std::lock_guard lock(fMutex);
  fState.speed = speed <= 0 ? 0 : std::clamp(speed, kSlowest, kFastest);
  fWish.isNews = true;
  fWake.notify_all();
}

void Player::setLoop(std::optional<std::pair<GK::GKMicros, GK::GKMicros>> loop) {
  const std::lock_guard lock(fMutex);
  if (loop) {
    loop = {xClamped(loop->first), xClamped(loop->second)};
  }
  fState.loop = loop && loop->first < loop->second ? loop : std::nullopt;
  fWish.isNews = true;
  fWake.notify_all();
}

void Player::step(Step what, int count) {
  const GK::GKMicros now = state().time;
  const GK::GKMicros target =
      what == Step::Tick ? xTickFrom(now, count) : fIndex->eventFrom(now, count).value_or(now);
  const std::lock_guard lock(fMutex);
  fState.isPlaying = false;
  // While not all events are known the nearest one may lie on the other side.
  fState.time = xClamped(count > 0 ? std::max(target, now) : std::min(target, now));
  fWish.isNews = true;
  if (fState.time > now) {
    fWish.advance = fState.time;
  } else if (fState.time < now) {
    fWish.seek = fState.time;
    fWish.advance.reset();
  }
  fWake.notify_all();
}

GK::GKMicros Player::xTickFrom(GK::GKMicros time, int count) {
  const std::lock_guard lock(fLookMutex);
  RunTape& tape = fLook;
  auto left = std::abs(static_cast<std::int64_t>(count));
  GK::GKMicros found = time;
  const auto ticksOf = [&tape](std::size_t chunk) {
    std::vector<GK::GKMicros> ticks;
    for (const TapeEntry& entry : tape.load(chunk, RunTape::Detail::Ticks)) {
      ticks.push_back(entry.time);
    }
    return ticks;
  };
  const std::size_t first = tape.chunkBefore(time);
  if (count > 0) {
    for (std::size_t chunk = first; chunk < tape.chunkCount() && left > 0; ++chunk) {
      for (const GK::GKMicros tick : ticksOf(chunk)) {
        if (left > 0 && tick > found) {
          found = tick;
          --left;
        }
      }
    }
    return found;
  }
  // From the last chunk that can hold something before this time, backwards.
  std::size_t chunk = first;
  while (chunk < tape.chunkCount() && tape.chunkBegin(chunk) <= time) {
    ++chunk;
  }
  while (chunk-- > 0 && left > 0) {
    std::vector<GK::GKMicros> ticks = ticksOf(chunk);
    std::ranges::reverse(ticks);
    for (const GK::GKMicros tick : ticks) {
      if (left > 0 && tick < found) {
        found = tick;
        --left;
      }
    }
  }
  return found;
}

void Player::setListener(std::function<void(Change)> tell) {
  const std::lock_guard lock(fListenerMutex);
  fListener = std::move(tell);
}

void Player::xTell(Change change) {
  const std::lock_guard lock(fListenerMutex);
  if (fListener) {
    fListener(change);
  }
}

void Player::xPlay() {
  Steady::time_point last = Steady::now();
  while (true) {
    Wish wish;
    PlaybackState state;
    {
      std::unique_lock lock(fMutex);
      const auto isWanted = [this] {
        return fIsEnding || fWish.seek || fWish.advance || fWish.isNews;
      };
      if (fState.isPlaying) {
        fWake.wait_for(lock, kFrame, isWanted);
      } else {
        fWake.wait(lock, isWanted);
      }
      if (fIsEnding) {
        return;
      }
      wish = std::exchange(fWish, {});
      state = fState;
    }
    const Steady::time_point now = Steady::now();
    const std::chrono::duration<double, std::micro> passed = now - std::exchange(last, now);
    if (wish.isIndexed) {
      xApplyIndex(fClock->elapsed());
    }
    if (wish.seek) {
      const bool isBack = *wish.seek < fClock->elapsed();
      xJump(*wish.seek);
      xTell({true, isBack});
      GK::GKObserverList::instance().notifyTick({fTape.module(), GK::GKTask::kLoopMethod});
      last = Steady::now();
      continue;
    }
    if (wish.advance) {
      xPlayTo(*wish.advance);
    }
    if (wish.isNews) {
      xTell({});
      last = Steady::now();
      continue;
    }
    if (!state.isPlaying) {
      continue;
    }
    const GK::GKMicros stop =
        state.loop && fClock->elapsed() < state.loop->second ? state.loop->second : state.end;
    fCursor = state.speed > 0 ? fCursor + passed.count() * state.speed
                              : static_cast<double>(fClock->elapsed() + kFastFrame);
    const GK::GKMicros target = std::min(static_cast<GK::GKMicros>(fCursor), stop);
    if (!xPlayTo(target) || target < stop) {
      continue;
    }
    const std::lock_guard lock(fMutex);
    if (fWish.seek || fWish.isNews) {
      continue; // Somebody wants something else by now.
    }
    if (state.loop && stop == state.loop->second) {
      fState.time = state.loop->first;
      fWish.seek = fState.time;
    } else {
      fState.isPlaying = false;
      fWish.isNews = true;
    }
  }
}

void Player::xStore(std::size_t key, const GK::GKValue& value) {
  fCells.resize(std::max(fCells.size(), key + 1));
  if (fCells[key] == nullptr) {
    fCells[key] = &fMemory->store()->cell(fTape.keys().at(key));
  }
  fCells[key]->store(value);
}

void Player::xJump(GK::GKMicros time) {
  fWindow.seek(time);
  fCursor = static_cast<double>(time);
  fWindow.loadTo(time);
  std::deque<TapeEntry>& entries = fWindow.entries();
  fClock->set(time);
  if (fIndex != nullptr) {
    xApplyIndex(time);
  }
  bool hasSample = false;
  while (!entries.empty() && entries.front().time <= time) {
    for (const auto& [key, value] : entries.front().values) {
      xStore(key, value);
    }
    hasSample = hasSample || entries.front().kind == TapeEntry::Kind::Sample;
    entries.pop_front();
  }
  // Before the first samples nothing is known of what modules had told: better too early than what
  // was so at the end.
  const auto isSample = [](const TapeEntry& entry) {
    return entry.kind == TapeEntry::Kind::Sample;
  };
  if (!hasSample) {
    fWindow.loadTo(time + RunTape::kOverlap);
    const auto first = std::ranges::find_if(entries, isSample);
    for (auto entry = first; entry != entries.end() && entry->time == first->time; ++entry) {
      for (const auto& [key, value] : entry->values) {
        xStore(key, value);
      }
    }
  }
}

void Player::xApplyIndex(GK::GKMicros time) {
  for (const auto& [key, value] : fIndex->valuesAt(time)) {
    fMemory->store()->set(key, value);
  }
}

bool Player::xPlayTo(GK::GKMicros time) {
  const auto moveTo = [this](GK::GKMicros to) {
    const std::lock_guard lock(fMutex);
    if (fWish.seek || fIsEnding) {
      return false;
    }
    fClock->set(to);
    fState.time = std::max(fState.time, to);
    return true;
  };
  fWindow.loadTo(time);
  std::deque<TapeEntry>& entries = fWindow.entries();
  while (!entries.empty() && entries.front().time <= time) {
    if (!moveTo(std::max(entries.front().time, fClock->elapsed()))) {
      return false;
    }
    const TapeEntry entry = std::move(entries.front());
    entries.pop_front();
    xApply(entry);
  }
  return moveTo(time);
}

void Player::xApply(const TapeEntry& entry) {
  GK::GKObserverList& observers = GK::GKObserverList::instance();
  for (const auto& [key, value] : entry.values) {
    xStore(key, value);
  }
  switch (entry.kind) {
  case TapeEntry::Kind::Raise:
    if (entry.notice.kind == GK::GKNotice::Kind::MicroEvent) {
      fMemory->raiseMicroEvent(entry.notice.name, entry.notice.value, GK::GKCaller::Platform);
    } else {
      fMemory->raiseEvent(entry.notice.name, entry.notice.value, GK::GKCaller::Platform);
    }
    break;
  case TapeEntry::Kind::Log:
    observers.notify(entry.notice);
    break;
  case TapeEntry::Kind::Tick:
    observers.notifyTick({fTape.module(), GK::GKTask::kLoopMethod});
    break;
  default:
    break;
  }
}

std::string Player::pastJson(gateway::PastRange range, std::string_view session) {
  const PlaybackState state = this->state();
  const GK::GKMicros from = std::clamp(range.from.value_or(state.begin), state.begin, state.end);
  GK::GKMicros to = std::clamp(range.to.value_or(state.end), from, state.end);
  if (range.step > 0 && to - from > kMostSamples) {
    to = from + kMostSamples;
    range.rest = to + 1;
  }
  range.from = from;
  range.to = to;
  range.whole = {state.begin, state.end};
  // What was then is told as what has just been is.
  constexpr GK::GKMicros always = INT64_MAX / 4;
  constexpr std::size_t most = std::size_t{1} << 30U;
  gateway::Past past({always, most});
  const auto store = std::make_shared<GK::GKMemoryStore>();
  past.open(store);
  if (range.step <= 0) {
    past.onTick(from, fTape.module());
    for (const GK::GKNotice& notice : fIndex->noticesIn(from, to)) {
      past.onNotice(notice);
    }
    past.onTick(to, fTape.module());
    return past.json(range, session);
  }
  RunTape tape(fOriginal);
  TapeWindow window(tape);
  window.seek(from);
  for (GK::GKMicros time = from; time < to + RunTape::kOverlap; time += RunTape::kOverlap) {
    // Piece by piece, so that not all of it is in memory at once.
    const GK::GKMicros end = std::min(time, to);
    window.loadTo(end);
    std::deque<TapeEntry>& entries = window.entries();
    for (; !entries.empty() && entries.front().time <= end; entries.pop_front()) {
      TapeEntry& entry = entries.front();
      for (const auto& [key, value] : entry.values) {
        store->set(tape.keys()[key], value);
      }
      if (entry.time < from) {
        continue;
      }
      if (entry.kind == TapeEntry::Kind::Tick) {
        past.onTick(entry.time, tape.module());
      } else if (entry.kind == TapeEntry::Kind::Raise || entry.kind == TapeEntry::Kind::Log) {
        entry.notice.time = entry.time;
        past.onNotice(entry.notice);
      }
    }
  }
  return past.json(range, session);
}

} // namespace gk::app
