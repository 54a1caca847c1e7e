#pragma once

#include "formats/recording/Recording.h"

#include <string>
#include <vector>

/// A target of recordings that keeps values in a memory and remembers the actions.
class PlayedTo final : public gk::formats::RecordingTarget {
public:
  GK::GKMemoryCell* column(const std::string& key) override {
    columns.push_back(key);
    return key == refused ? nullptr : &memory.cell(key);
  }
  void act(const gk::formats::Action& action) override { actions.push_back(action); }

  GK::GKMemoryStore memory;
  std::vector<std::string> columns;
  std::vector<gk::formats::Action> actions;
  /// A key that must not be written.
  std::string refused;
};

/// Keys that begin so are floats or ints of the device layer.
inline gk::messages::KeyType testKeyType(std::string_view key) {
  using gk::messages::KeyType;
  if (key.starts_with("float")) {
    return KeyType::Float;
  }
  return key.starts_with("int") ? KeyType::Int : KeyType::Any;
}
