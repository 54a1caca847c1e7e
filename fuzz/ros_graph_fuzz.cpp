#include "extensions/ros2/Graph.h"
#include "fuzz/Require.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

// Any bytes as what a stranger tells of his nodes. What has a format has it with padding as well,
// and never both; what is told in one after that keeps to it or falls silent.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using gk::ros2::GidSize;
  const std::span<const std::uint8_t> message(data, size);
  const std::optional<GidSize> format = gk::ros2::formatOf(message);
  gk::fuzz::require(!format || size <= gk::ros2::kMostGraphBytes, "long messages have no format");

  gk::ros2::GraphFormat graph = *gk::ros2::GraphFormat::named("auto");
  graph.see(message);
  gk::fuzz::require(graph.size() == format, "the format of the first one is taken");
  for (const GidSize other : {GidSize::Bytes16, GidSize::Bytes24}) {
    gk::ros2::GraphFormat both = graph;
    gk::ros2::GraphNode node;
    node.space = "/";
    node.name = "gk";
    const std::string known = gk::ros2::graphMessage(node, other);
    both.see({reinterpret_cast<const std::uint8_t*>(known.data()), known.size()});
    gk::fuzz::require(both.isMixed() == (format && *format != other), "two formats are noticed");
  }
  return 0;
}
