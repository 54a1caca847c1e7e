#include "runtime/output/Reporter.h"

namespace gk::runtime {

namespace {

formats::LineKind kindOf(const Answer& answer) {
  switch (answer.kind) {
  case Answer::Kind::Result:
    return formats::LineKind::Result;
  case Answer::Kind::Error:
  case Answer::Kind::OtherError:
    return formats::LineKind::Error;
  case Answer::Kind::Value:
    return formats::LineKind::Value;
  case Answer::Kind::Page:
    return formats::LineKind::Page;
  }
  return formats::LineKind::Result;
}

} // namespace

Reporter::Reporter(std::unique_ptr<Outlet> outlet, formats::LineKinds kinds)
    : fOutlet(std::move(outlet)), fKinds(kinds) {}

template <class... What> void Reporter::xWrite(formats::LineKind kind, const What&... what) {
  if (!fKinds.contains(kind)) {
    return;
  }
  const std::lock_guard lock(fMutex);
  if (fIsMuted) {
    return;
  }
  fLine.clear();
  xAppend(fLine, what...);
  if (!fLine.empty()) {
    fOutlet->write(fLine);
  }
}

void Reporter::onNotice(const GK::GKNotice& notice) {
  // What a client inserts is the client's own knowledge: only the modules' insertions are news.
  if (notice.kind != GK::GKNotice::Kind::Insert || notice.caller == GK::GKCaller::Module) {
    xWrite(formats::lineKindOf(notice), notice);
  }
}

void Reporter::answer(const Answer& answer) {
  xWrite(kindOf(answer), answer);
}

void Reporter::sample(GK::GKMicros time, const Sample& values) {
  xWrite(formats::LineKind::Sample, time, values);
}

void Reporter::print(std::string_view lines) {
  const std::lock_guard lock(fMutex);
  fLine.clear();
  xAppendPrinted(fLine, lines);
  fOutlet->write(fLine);
}

void Reporter::finish() {
  const std::lock_guard lock(fMutex);
  fLine.clear();
  xFinish(fLine);
  if (!fLine.empty()) {
    fOutlet->write(fLine);
  }
}

void Reporter::mute() {
  const std::lock_guard lock(fMutex);
  fIsMuted = true;
}

void JsonReporter::xAppend(std::string& out, const GK::GKNotice& notice) {
  formats::appendNotice(out, notice);
}

void JsonReporter::xAppend(std::string& out, const Answer& answer) {
  const GK::GKValue* value = answer.hasValue ? &answer.value : nullptr;
  switch (answer.kind) {
  case Answer::Kind::Result:
    formats::appendResult(out, answer.time, answer.name, value);
    break;
  case Answer::Kind::Error:
    formats::appendError(out, answer.time, answer.name, *answer.error);
    break;
  case Answer::Kind::OtherError:
    formats::appendError(out, answer.time, answer.name, std::string_view(answer.text));
    break;
  case Answer::Kind::Value:
    formats::appendValue(out, answer.time, answer.name, value);
    break;
  case Answer::Kind::Page:
    formats::appendPage(out, answer.time, answer.name, answer.text);
    break;
  }
}

void JsonReporter::xAppend(std::string& out, GK::GKMicros time, const Sample& values) {
  formats::appendSample(out, time, values);
}

} // namespace gk::runtime
