#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What ROS calls its graph: the messages on "ros_discovery_info" in which each participant tells
/// of its nodes (rmw_dds_common/msg/ParticipantEntitiesInfo). Their ids have 24 bytes in the older
/// format, and 16 in all later ones; programs that get the wrong one may end.
namespace gk::ros2 {

/// How long ids are, in bytes.
enum class GidSize : std::uint8_t { Bytes16 = 16, Bytes24 = 24 };

/// The id of a participant, a writer or a reader.
using Gid = std::array<std::uint8_t, 16>;

/// Longest message that is looked at, in bytes.
inline constexpr std::size_t kMostGraphBytes = 1 << 16;

/// The format of a message that somebody else sent; nothing where it fits none or both. Any bytes.
std::optional<GidSize> formatOf(std::span<const std::uint8_t> message);

/// A participant with one node.
struct GraphNode {
  Gid participant{};
  /// "/" or "/name".
  std::string space;
  std::string name;
  std::vector<Gid> writers;
};

/// The message that tells of it, with its four bytes of encapsulation.
std::string graphMessage(const GraphNode& node, GidSize size);

/// Whether and in which format a graph is to be told. For one thread.
class GraphFormat {
public:
  /// "auto", "off", "gid16" or "gid24"; nothing for anything else.
  static std::optional<GraphFormat> named(std::string_view name);

  /// What others send is to be looked at.
  bool isWatching() const noexcept { return fIsWatching; }
  /// Another participant has sent this.
  void see(std::span<const std::uint8_t> message);

  /// The format to use; nothing for none.
  std::optional<GidSize> size() const noexcept { return fSize; }
  /// Both formats have been seen: whatever is sent, somebody could not bear it.
  bool isMixed() const noexcept { return fIsMixed; }

private:
  bool fIsWatching = false;
  bool fIsMixed = false;
  std::optional<GidSize> fSize;
};

} // namespace gk::ros2
