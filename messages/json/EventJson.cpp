#include "messages/json/EventJson.h"

#include "messages/text/Numbers.h"

#include <string>

namespace gk::messages {

void appendEvent(JsonWriter& json, const GK::GKNotice& notice) {
  std::string seconds;
  appendSeconds(seconds, notice.time);
  json.key("t_s").raw(seconds);
  json.key("kind").text(notice.kind == GK::GKNotice::Kind::MicroEvent ? "micro" : "event");
  json.key("value").value(notice.value);
}

} // namespace gk::messages
