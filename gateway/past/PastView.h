#pragma once

#include "formats/run/RunLogReader.h"
#include "gateway/past/Past.h"

#include <variant>

namespace gk::gateway {

struct Past::View {
  std::vector<std::shared_ptr<const Piece>> pieces;
  std::vector<GK::GKValue> base;
  std::vector<std::string> names;
  std::vector<bool> isInput;
  std::map<std::string, std::size_t, std::less<>> byName;
  std::shared_ptr<const GK::GKMemoryStore> store;
  std::string module;
  GK::GKMicros begin = 0;
  GK::GKMicros end = 0;
  bool isBeginGone = false;

  /// Calls for each entry in its order `turn(time)`, `values(RunValues)`, `action(Action)`. What
  /// `turn` returns says whether to go on.
  template <class Turn, class TakeValues, class TakeAction>
  void walk(const Turn& turn, const TakeValues& values, const TakeAction& action) const {
    for (const auto& piece : pieces) {
      formats::RunLogReader reader(piece->log);
      while (std::optional<formats::RunEntry> entry = reader.next()) {
        if (const auto* at = std::get_if<formats::RunTurn>(&*entry)) {
          if (!turn(at->time)) {
            return;
          }
        } else if (const auto* changed = std::get_if<formats::RunValues>(&*entry)) {
          values(*changed);
        } else if (const auto* done = std::get_if<formats::RunAction>(&*entry)) {
          action(done->action);
        }
      }
    }
  }
};

} // namespace gk::gateway
