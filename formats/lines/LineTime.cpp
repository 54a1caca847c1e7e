#include "formats/lines/LineTime.h"

#include "messages/json/JsonValue.h"
#include "messages/text/FormatError.h"

#include <boost/json/object.hpp>

namespace gk::formats {

std::optional<double> lineTime(const boost::json::object& line) {
  const boost::json::value* time = line.if_contains(kTimeMember);
  if (time == nullptr) {
    return std::nullopt;
  }
  const std::optional<double> seconds = messages::numberFromJson(*time);
  if (!seconds) {
    throw messages::FormatError("\"t\" takes seconds as a number");
  }
  return seconds;
}

} // namespace gk::formats
