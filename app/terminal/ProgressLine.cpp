#include "app/terminal/ProgressLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace gk::app {

namespace {

constexpr std::chrono::milliseconds kBetweenDrawings{100};
constexpr int kWidth = 40;

} // namespace

ProgressLine::ProgressLine() : fIsTerminal(isatty(STDERR_FILENO) != 0) {}

ProgressLine::~ProgressLine() {
  if (fIsDrawn) {
    fmt::print(stderr, "\r\x1b[K");
  }
}

bool ProgressLine::isDue() {
  return fIsTerminal && Clock::now() >= fNextDrawing;
}

void ProgressLine::show(double progress, const std::string& text) {
  if (!isDue()) {
    return;
  }
  fNextDrawing = Clock::now() + kBetweenDrawings;
  fIsDrawn = true;
  progress = std::clamp(progress, 0.0, 1.0);
  const int filled = static_cast<int>(progress * kWidth);
  fmt::print(stderr, "\r[{:=<{}}{:{}}] {:3.0f} %  {}", "", filled, "", kWidth - filled,
             progress * 100, text);
  std::fflush(stderr);
}

} // namespace gk::app
