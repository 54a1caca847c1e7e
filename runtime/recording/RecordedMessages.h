#pragma once

#include "gk/GKObserver.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace gk::runtime {

/// A stream of JSON messages for people and viewers.
struct RecordedChannel {
  std::string topic;
  std::string schemaName;
  /// A JSON Schema, as JSON text.
  std::string schema;
};

struct RecordedMessage {
  std::shared_ptr<const RecordedChannel> channel;
  /// Microseconds since the clock started.
  GK::GKMicros time = 0;
  /// One JSON object.
  std::string payload;
};

/// Makes the messages of a recording from what observers see. Called as an observer is.
class MessageMaker {
public:
  virtual ~MessageMaker() = default;
  virtual std::vector<RecordedMessage> ofNotice(const GK::GKNotice& notice) = 0;
  virtual std::vector<RecordedMessage> ofTick(GK::GKMicros time, const GK::GKTask& task) = 0;
};

} // namespace gk::runtime
