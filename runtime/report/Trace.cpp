#include "runtime/report/Trace.h"

#include <algorithm>
#include <cmath>

namespace gk::runtime {

void Trace::add(GK::GKMicros time, float value) {
  if (!std::isfinite(value)) {
    return;
  }
  fLeast = fSpans.empty() ? value : std::min(fLeast, value);
  fMost = fSpans.empty() ? value : std::max(fMost, value);
  fLast = time;
  if (!fSpans.empty() && time < fSpans.back().time + fWidth) {
    Span& span = fSpans.back();
    span.least = std::min(span.least, value);
    span.most = std::max(span.most, value);
    return;
  }
  fSpans.push_back({time, value, value});
  if (fSpans.size() > kMostSpans) {
    xHalve();
  }
}

/// Joins neighbours two by two.
void Trace::xHalve() {
  fWidth *= 2;
  std::vector<Span> halved;
  halved.reserve(kMostSpans);
  for (const Span& span : fSpans) {
    if (!halved.empty() && span.time < halved.back().time + fWidth) {
      halved.back().least = std::min(halved.back().least, span.least);
      halved.back().most = std::max(halved.back().most, span.most);
    } else {
      halved.push_back(span);
    }
  }
  fSpans.swap(halved);
}

std::vector<Trace::Span> Trace::spans() const {
  const auto isSame = [](const Span& left, const Span& right) {
    return left.least == right.least && left.most == right.most;
  };
  std::vector<Span> spans;
  for (std::size_t i = 0; i < fSpans.size(); ++i) {
    const bool isInner = i > 0 && i + 1 < fSpans.size();
    if (!isInner || !isSame(fSpans[i - 1], fSpans[i]) || !isSame(fSpans[i], fSpans[i + 1])) {
      spans.push_back(fSpans[i]);
    }
  }
  if (!spans.empty() && fLast > spans.back().time) {
    spans.push_back({fLast, spans.back().least, spans.back().most});
  }
  return spans;
}

} // namespace gk::runtime
