#include "gateway/stream/ClientQueue.h"

#include <algorithm>
#include <utility>

namespace gk::gateway {

bool ClientQueue::addAnswer(Frame frame) {
  if (fAnswers.size() >= fLimits.answers || !xMakeRoom(frame.size())) {
    return false;
  }
  fBytes += frame.size();
  fAnswerBytes += frame.size();
  fAnswers.push_back(std::move(frame));
  return true;
}

void ClientQueue::addEvent(std::uint32_t channel, Frame frame) {
  if (!xMakeRoom(frame.size())) {
    ++fDrops[channel];
    return;
  }
  if (fEvents.size() >= fLimits.events) {
    xDropOldestEvent();
  }
  fBytes += frame.size();
  fEvents.push_back({channel, std::move(frame)});
}

void ClientQueue::setSample(std::uint32_t channel, Frame frame) {
  const auto found = std::ranges::find(fSamples, channel, &Waiting::channel);
  if (found != fSamples.end()) {
    // Keeps the place of the one that it replaces: each channel has its turn.
    Waiting& waiting = *found;
    if (fBytes - waiting.frame.size() + frame.size() <= fLimits.bytes) {
      xDrop(channel, waiting.frame.size());
      fBytes += frame.size();
      waiting.frame = std::move(frame);
      return;
    }
    xDropSample(found);
  }
  if (fBytes + frame.size() > fLimits.bytes) {
    ++fDrops[channel];
    return;
  }
  fBytes += frame.size();
  fSamples.push_back({channel, std::move(frame)});
}

void ClientQueue::forget(std::uint32_t channel) {
  if (const auto found = std::ranges::find(fSamples, channel, &Waiting::channel);
      found != fSamples.end()) {
    fBytes -= found->frame.size();
    fSamples.erase(found);
  }
  std::erase_if(fEvents, [this, channel](const Waiting& waiting) {
    if (waiting.channel == channel) {
      fBytes -= waiting.frame.size();
    }
    return waiting.channel == channel;
  });
  fDrops.erase(channel);
}

std::optional<Frame> ClientQueue::take() {
  std::optional<Frame> frame;
  if (!fAnswers.empty()) {
    frame = std::move(fAnswers.front());
    fAnswers.pop_front();
    fAnswerBytes -= frame->size();
  } else if (!fEvents.empty()) {
    frame = std::move(fEvents.front().frame);
    fEvents.pop_front();
  } else if (!fSamples.empty()) {
    frame = std::move(fSamples.front().frame);
    fSamples.pop_front();
  }
  if (frame) {
    fBytes -= frame->size();
  }
  return frame;
}

ClientQueue::Drops ClientQueue::takeDrops() {
  return std::exchange(fDrops, {});
}

void ClientQueue::xDrop(std::uint32_t channel, std::size_t bytes) {
  ++fDrops[channel];
  fBytes -= bytes;
}

void ClientQueue::xDropSample(Samples::iterator sample) {
  xDrop(sample->channel, sample->frame.size());
  fSamples.erase(sample);
}

void ClientQueue::xDropOldestEvent() {
  xDrop(fEvents.front().channel, fEvents.front().frame.size());
  fEvents.pop_front();
}

bool ClientQueue::xMakeRoom(std::size_t bytes) {
  if (fAnswerBytes + bytes > fLimits.bytes) {
    return false;
  }
  while (fBytes + bytes > fLimits.bytes && !fSamples.empty()) {
    xDropSample(fSamples.begin());
  }
  while (fBytes + bytes > fLimits.bytes) {
    xDropOldestEvent();
  }
  return true;
}

} // namespace gk::gateway
