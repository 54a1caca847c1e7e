#pragma once

#include "formats/recording/Recording.h"

#include <memory>
#include <utility>

namespace gk::formats {

/// A recording that ends after a time, that time included.
class ShortenedRecording final : public Recording {
public:
  ShortenedRecording(std::unique_ptr<Recording> whole, GK::GKMicros end)
      : fWhole(std::move(whole)), fEnd(end) {
    fPreload = fWhole->preload();
    xFollow();
  }

  void play(RecordingTarget& target) override {
    fWhole->play(target);
    xFollow();
  }
  void skip() override {
    fWhole->skip();
    xFollow();
  }
  double progress() const noexcept override { return fWhole->progress(); }
  std::vector<std::string> problems() const override { return fWhole->problems(); }
  bool isComplete() const noexcept override { return fWhole->isComplete(); }

private:
  void xFollow() {
    fTime = fWhole->time();
    if (fTime && *fTime > fEnd) {
      fTime.reset();
    }
  }

  const std::unique_ptr<Recording> fWhole;
  const GK::GKMicros fEnd;
};

} // namespace gk::formats
