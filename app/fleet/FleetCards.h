#pragma once

#include "app/fleet/FleetBook.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace gk::app {

/// The cards of the fleet's page, each with the number of its last change, so that a page is sent
/// what it does not have. Any thread.
class FleetCards {
public:
  /// `session` tells these numbers from those of a process before; `broker` is shown.
  FleetCards(std::string session, std::string broker);

  /// Takes over how the robots are: what is the same as before changes nothing.
  void update(const FleetBook& book);
  /// Why there is no broker; empty while there is one.
  void setTrouble(const std::string& trouble);

  /// Number of the last change; the first one is 1.
  std::uint64_t version() const;

  /// What has changed after `after`, which a page of this session has, or everything:
  /// `{"session","version","broker","trouble","robots","all","cards":[...]}`. A robot that has
  /// been forgotten is a reason to send everything.
  std::string since(std::optional<std::uint64_t> after, const std::string& session) const;

private:
  struct Card {
    std::string json;
    std::uint64_t changed = 0;
  };

  const std::string fSession;
  const std::string fBroker;
  mutable std::mutex fMutex;
  std::map<FleetBook::Key, Card> fCards;
  std::string fTrouble;
  std::uint64_t fVersion = 1;
  /// When a card went last.
  std::uint64_t fLastGone = 0;
};

} // namespace gk::app
