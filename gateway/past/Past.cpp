#include "gateway/past/Past.h"

#include "formats/run/RunLogReader.h"
#include "messages/json/SameValue.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/keys/Subjects.h"
#include "messages/notices/NoticeSize.h"
#include "messages/notices/Raise.h"

#include <algorithm>
#include <variant>

namespace gk::gateway {

void Past::open(std::shared_ptr<const GK::GKMemoryStore> store) {
  const std::lock_guard lock(fMutex);
  fStore = std::move(store);
  const auto add = [this](const std::string& name, bool isInput) {
    if (fByName.try_emplace(name, fKeys.size()).second) {
      fKeys.push_back({name, nullptr, isInput, {}});
    }
  };
  for (const messages::DeviceKey& key : messages::simulatedKeys()) {
    add(key.name, true);
  }
  for (const messages::Subject& subject : messages::subjects()) {
    for (const messages::SubjectField& field : subject.fields) {
      add(field.key, false);
    }
  }
  fBase.assign(fKeys.size(), {});
}

void Past::xBeginPieceAt(GK::GKMicros time) {
  if (!fLog.isEmpty() && time - fPieceBegin >= kPieceTime) {
    xEndPiece();
  }
  if (fLog.isEmpty()) {
    // What was seen before the first piece is as old as its first tick.
    fPieceBegin = fEvents.empty() ? time : std::min(time, fEvents.front().time);
    fIsBeginGone = fIsBeginGone || (fPieces.empty() && fPieceBegin > kPieceTime);
  }
}

void Past::xEndPiece() {
  auto piece = std::make_shared<Piece>();
  piece->begin = fPieceBegin;
  piece->log = fLog.take();
  // Pieces are forgotten one by one.
  fLog.beginAnew();
  piece->events = std::exchange(fEvents, {});
  piece->bytes = sizeof(Piece) + piece->log.size() + std::exchange(fEventBytes, 0);
  fBytes += piece->bytes;
  fPieces.push_back(std::move(piece));
  xForget();
}

/// A flood between two ticks.
void Past::xEndPieceIfFull() {
  if (fLog.size() + fEventBytes > fOptions.bytes / 2 && !fLog.isEmpty()) {
    xEndPiece();
  }
}

void Past::xForget() {
  const auto isTooOld = [this] {
    return fPieces.size() > 1 && fPieces[1]->begin <= fLast - fOptions.length;
  };
  while (isTooOld() || (fPieces.size() > 1 && fBytes > fOptions.bytes)) {
    xForgetOldest();
  }
}

void Past::xForgetOldest() {
  formats::RunLogReader reader(fPieces.front()->log);
  while (std::optional<formats::RunEntry> entry = reader.next()) {
    if (const auto* changed = std::get_if<formats::RunValues>(&*entry)) {
      for (const formats::RunValue& value : changed->values) {
        fBase[value.key] = changed->value(value);
      }
    }
  }
  fBytes -= fPieces.front()->bytes;
  fPieces.pop_front();
  fIsBeginGone = true;
}

void Past::onNotice(const GK::GKNotice& notice) {
  using Kind = GK::GKNotice::Kind;
  if (!isOn() ||
      (!messages::isRaise(notice) && notice.kind != Kind::Declare && notice.kind != Kind::Log)) {
    return;
  }
  const std::lock_guard lock(fMutex);
  fEvents.push_back(notice);
  fEventBytes += messages::bytesOf(notice);
  xEndPieceIfFull();
}

void Past::onTick(GK::GKMicros time, std::string_view module) {
  const std::lock_guard lock(fMutex);
  if (!isOn() || fStore == nullptr) {
    return;
  }
  time = std::max(time, fLast);
  xBeginPieceAt(time);
  fLast = time;
  if (fModule.empty()) {
    fModule = module;
  }
  fLog.add(formats::RunTurn{formats::kOutsideTask, time});
  fLog.beginValues();
  for (std::size_t i = 0; i < fKeys.size(); ++i) {
    Key& key = fKeys[i];
    if (key.cell == nullptr) {
      key.cell = fStore->find(key.name);
    }
    if (key.cell == nullptr || !key.cell->exists()) {
      continue;
    }
    GK::GKValue value = key.cell->load();
    if (!messages::isSameValue(value, key.told)) {
      fLog.addValue(i, value);
      key.told = std::move(value);
    }
  }
  fLog.endValues();
}

void Past::onAction(GK::GKMicros time, const formats::Action& action) {
  const std::lock_guard lock(fMutex);
  if (!isOn() || fStore == nullptr) {
    return;
  }
  time = std::max(time, fLast);
  xBeginPieceAt(time);
  fLast = time;
  fLog.add(formats::RunTurn{formats::kOutsideTask, time});
  fLog.add(formats::RunAction{action});
  xEndPieceIfFull();
}

} // namespace gk::gateway
