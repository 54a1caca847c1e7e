#include "app/fleet/FleetCards.h"

#include "messages/json/JsonWriter.h"

#include <utility>

namespace gk::app {

FleetCards::FleetCards(std::string session, std::string broker)
    : fSession(std::move(session)), fBroker(std::move(broker)) {}

void FleetCards::update(const FleetBook& book) {
  const std::lock_guard lock(fMutex);
  const std::uint64_t next = fVersion + 1;
  bool isChanged = false;
  for (const auto& [key, robot] : book.robots()) {
    std::string json = robot.cardJson();
    Card& card = fCards[key];
    if (card.json != json) {
      card = {std::move(json), next};
      isChanged = true;
    }
  }
  const std::size_t gone = std::erase_if(
      fCards, [&book](const auto& one) { return !book.robots().contains(one.first); });
  if (gone > 0) {
    fLastGone = next;
    isChanged = true;
  }
  fVersion = isChanged ? next : fVersion;
}

void FleetCards::setTrouble(const std::string& trouble) {
  const std::lock_guard lock(fMutex);
  if (fTrouble != trouble) {
    fTrouble = trouble;
    ++fVersion;
  }
}

std::uint64_t FleetCards::version() const {
  const std::lock_guard lock(fMutex);
  return fVersion;
}

std::string FleetCards::since(std::optional<std::uint64_t> after,
                              const std::string& session) const {
  const std::lock_guard lock(fMutex);
  const bool isAll = !after || session != fSession || *after > fVersion || *after < fLastGone;
  std::string text;
  messages::JsonWriter out(text);
  out.beginObject().key("session").text(fSession).key("version").unsignedInteger(fVersion);
  out.key("broker").text(fBroker).key("trouble").text(fTrouble);
  out.key("robots").unsignedInteger(fCards.size()).key("all").boolean(isAll);
  out.key("cards").beginArray();
  for (const auto& [key, card] : fCards) {
    if (isAll || card.changed > *after) {
      out.raw(card.json);
    }
  }
  out.endArray().endObject();
  return text;
}

} // namespace gk::app
