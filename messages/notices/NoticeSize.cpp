#include "messages/notices/NoticeSize.h"

namespace gk::messages {

namespace {

/// What the allocations of a notice's texts add, and its place in a list.
constexpr std::size_t kOverhead = 64;

} // namespace

std::size_t heapOf(const GK::GKValue& value) {
  std::size_t bytes = 0;
  if (value.type() == GK::GKValue::Type::String) {
    bytes = value.toString().size();
  } else if (value.type() == GK::GKValue::Type::Array) {
    for (const GK::GKValue& element : value.toArray()) {
      bytes += sizeof element + heapOf(element);
    }
  }
  return bytes;
}

std::size_t bytesOf(const GK::GKNotice& notice) {
  return sizeof notice + kOverhead + notice.name.size() + notice.owner.size() + notice.text.size() +
         heapOf(notice.value);
}

} // namespace gk::messages
