#include "extensions/ros2/Graph.h"

#include "messages/ros/Cdr.h"

#include <algorithm>
#include <iterator>

namespace gk::ros2 {

namespace {

/// Plain CDR, little endian.
constexpr std::string_view kEncoding = messages::ros::CdrWriter::kHeader;
constexpr std::size_t kNumber = 4;
/// Longest text of a node with its zero byte.
constexpr std::size_t kMostText = 257;
/// What may stand behind the last member.
constexpr std::size_t kMostPadding = 3;

/// Walks through a message, and stays where something does not fit.
class Walk {
public:
  explicit Walk(std::span<const std::uint8_t> bytes) : fRest(bytes), fSize(bytes.size()) {}

  bool skip(std::size_t size) {
    if (size > fRest.size()) {
      return false;
    }
    fRest = fRest.subspan(size);
    return true;
  }

  std::optional<std::uint32_t> number() {
    const std::size_t place = fSize - fRest.size();
    if (!skip((kNumber - place % kNumber) % kNumber) || fRest.size() < kNumber) {
      return std::nullopt;
    }
    const std::uint32_t value =
        static_cast<std::uint32_t>(fRest[0]) | static_cast<std::uint32_t>(fRest[1]) << 8U |
        static_cast<std::uint32_t>(fRest[2]) << 16U | static_cast<std::uint32_t>(fRest[3]) << 24U;
    fRest = fRest.subspan(kNumber);
    return value;
  }

  /// A text with its zero byte at the end, and none before.
  bool text() {
    const std::optional<std::uint32_t> size = number();
    if (!size || *size == 0 || *size > kMostText || *size > fRest.size()) {
      return false;
    }
    const auto text = fRest.first(*size);
    return std::ranges::find(text, 0) == text.end() - 1 && skip(*size);
  }

  bool gids(std::size_t gidSize) {
    const std::optional<std::uint32_t> count = number();
    return count && *count <= fRest.size() / gidSize && skip(*count * gidSize);
  }

  std::size_t rest() const { return fRest.size(); }

private:
  std::span<const std::uint8_t> fRest;
  std::size_t fSize;
};

bool fits(std::span<const std::uint8_t> body, std::size_t gidSize) {
  Walk walk(body);
  if (!walk.skip(gidSize)) {
    return false;
  }
  const std::optional<std::uint32_t> nodes = walk.number();
  // Each takes bytes, so that a count beyond them ends soon.
  for (std::uint32_t i = 0; nodes && i < *nodes; ++i) {
    if (!walk.text() || !walk.text() || !walk.gids(gidSize) || !walk.gids(gidSize)) {
      return false;
    }
  }
  return nodes && walk.rest() <= kMostPadding;
}

template <std::size_t Size> using WideGid = std::array<std::uint8_t, Size>;

/// The bytes beyond the id's own are zero.
template <std::size_t Size> WideGid<Size> widened(const Gid& gid) {
  WideGid<Size> wide{};
  std::ranges::copy(gid, wide.begin());
  return wide;
}

template <std::size_t Size> std::string encoded(const GraphNode& node) {
  std::vector<WideGid<Size>> writers;
  std::ranges::transform(node.writers, std::back_inserter(writers), widened<Size>);
  std::string bytes;
  messages::ros::CdrWriter message(bytes);
  message.write(widened<Size>(node.participant));
  message.write(std::uint32_t{1}); // nodes
  message.write(node.space);
  message.write(node.name);
  message.write(std::uint32_t{0}); // readers
  message.write(writers);
  return bytes;
}

} // namespace

std::optional<GidSize> formatOf(std::span<const std::uint8_t> message) {
  // The latter two bytes of the four tell nothing about the encoding.
  if (message.size() > kMostGraphBytes || message.size() < kEncoding.size() ||
      message[0] != static_cast<std::uint8_t>(kEncoding[0]) ||
      message[1] != static_cast<std::uint8_t>(kEncoding[1])) {
    return std::nullopt;
  }
  const std::span<const std::uint8_t> body = message.subspan(kEncoding.size());
  const bool is16 = fits(body, static_cast<std::size_t>(GidSize::Bytes16));
  const bool is24 = fits(body, static_cast<std::size_t>(GidSize::Bytes24));
  if (is16 == is24) {
    return std::nullopt;
  }
  return is16 ? GidSize::Bytes16 : GidSize::Bytes24;
}

std::string graphMessage(const GraphNode& node, GidSize size) {
  return size == GidSize::Bytes16 ? encoded<16>(node) : encoded<24>(node);
}

std::optional<GraphFormat> GraphFormat::named(std::string_view name) {
  GraphFormat format;
  if (name == "auto") {
    format.fIsWatching = true;
  } else if (name == "gid16") {
    format.fSize = GidSize::Bytes16;
  } else if (name == "gid24") {
    format.fSize = GidSize::Bytes24;
  } else if (name != "off") {
    return std::nullopt;
  }
  return format;
}

void GraphFormat::see(std::span<const std::uint8_t> message) {
  const std::optional<GidSize> seen = formatOf(message);
  if (!fIsWatching || !seen) {
    return;
  }
  if (fSize && *fSize != *seen) {
    fIsMixed = true;
    fIsWatching = false;
    fSize.reset();
    return;
  }
  fSize = seen;
}

} // namespace gk::ros2
