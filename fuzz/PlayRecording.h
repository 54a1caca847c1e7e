#pragma once

#include "formats/recording/Recording.h"
#include "fuzz/Require.h"

#include <map>
#include <memory>
#include <string>

namespace gk::fuzz {

/// Takes what a recording plays.
class NullTarget : public formats::RecordingTarget {
public:
  GK::GKMemoryCell* column(const std::string& key) override { return &fStore.cell(key); }
  void act(const formats::Action&) override {}

private:
  GK::GKMemoryStore fStore;
};

/// Plays a recording made by `open` to its end. Whatever the file holds, times never go back and
/// the only complaint is an `InputError` of one line.
template <class Open> void playRecording(const Open& open) {
  try {
    const std::unique_ptr<formats::Recording> recording = open();
    NullTarget target;
    GK::GKMicros last = 0;
    while (recording->time()) {
      require(*recording->time() >= last, "times never go back");
      last = *recording->time();
      require(recording->progress() >= 0.0 && recording->progress() <= 1.0, "progress is 0 to 1");
      recording->play(target);
    }
  } catch (const formats::InputError& error) {
    require(std::string(error.what()).find('\n') == std::string::npos, "an error is one line");
    require(error.getLine() >= 1, "lines count from 1");
  }
}

} // namespace gk::fuzz
