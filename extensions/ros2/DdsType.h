#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct ddsi_serdata;
struct ddsi_sertype;

/// A DDS type whose samples are bytes that are encoded already, so that one encoder serves all. The
/// only place that knows how Cyclone DDS 0.10 keeps types and samples inside.
namespace gk::ros2 {

/// Longest sample that is taken in from others, in bytes; of a longer one nothing is kept.
inline constexpr std::size_t kMostBytes = 1 << 18;

/// A new type of this name, such as "std_msgs::msg::dds_::Bool_", without a key. For
/// `dds_create_topic_sertype`, which takes it; who does not get that far gives it to `dropType`.
ddsi_sertype* makeType(const std::string& name);
void dropType(ddsi_sertype* type);

/// A sample of this type: `bytes` with their four of encapsulation, copied. For `dds_writecdr`,
/// which takes it.
ddsi_serdata* makeSample(const ddsi_sertype* type, std::string_view bytes);

/// The bytes of a sample of such a type.
std::span<const std::uint8_t> bytesOf(const ddsi_serdata* sample);
void dropSample(ddsi_serdata* sample);

} // namespace gk::ros2
