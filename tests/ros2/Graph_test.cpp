#include "extensions/ros2/Graph.h"

#include <gmock/gmock.h>

#include <optional>
#include <span>
#include <string>

namespace {

using gk::ros2::formatOf;
using gk::ros2::GidSize;
using gk::ros2::GraphFormat;
using gk::ros2::graphMessage;
using gk::ros2::GraphNode;

std::span<const std::uint8_t> bytesOf(const std::string& message) {
  return {reinterpret_cast<const std::uint8_t*>(message.data()), message.size()};
}

/// A participant with so many writers; its id has no zero bytes.
GraphNode node(std::size_t writers, const std::string& name = "gk") {
  GraphNode node;
  node.participant.fill(0x11);
  node.space = "/";
  node.name = name;
  node.writers.resize(writers);
  for (gk::ros2::Gid& gid : node.writers) {
    gid.fill(0x22);
  }
  return node;
}

/// A participant that has no node any more.
std::string withoutNodes(std::size_t gidSize) {
  std::string message("\0\1\0\0", 4);
  message.append(16, '\x11').append(gidSize - 16, '\0').append(4, '\0');
  return message;
}

TEST(Ros2Graph, EachFormatIsToldFromTheOther) {
  for (const std::size_t writers : {0U, 1U, 3U, 60U}) {
    for (const char* name : {"gk", "a", "abcdefghijklmnopqrstuvwxyz"}) {
      const GraphNode sut = node(writers, name);
      EXPECT_EQ(formatOf(bytesOf(graphMessage(sut, GidSize::Bytes16))), GidSize::Bytes16);
      EXPECT_EQ(formatOf(bytesOf(graphMessage(sut, GidSize::Bytes24))), GidSize::Bytes24);
    }
  }
  EXPECT_EQ(formatOf(bytesOf(withoutNodes(16))), GidSize::Bytes16);
  EXPECT_EQ(formatOf(bytesOf(withoutNodes(24))), GidSize::Bytes24);
}

TEST(Ros2Graph, TheMessageIsAsRosReadsIt) {
  // 4 of encapsulation, 16 of the id, the number of nodes, "/" with its length and zero byte, "gk"
  // likewise at a multiple of 4, no readers, one writer.
  const std::string message = graphMessage(node(1), GidSize::Bytes16);

  std::string expected("\0\1\0\0", 4);
  expected.append(16, '\x11');
  expected.append("\1\0\0\0", 4).append("\2\0\0\0/\0\0\0", 8).append("\3\0\0\0gk\0\0", 8);
  expected.append("\0\0\0\0", 4).append("\1\0\0\0", 4).append(16, '\x22');
  EXPECT_EQ(message, expected);
}

TEST(Ros2Graph, WhatIsCutPaddedTooFarOrOfAnotherEncodingHasNoFormat) {
  const std::string whole = graphMessage(node(1), GidSize::Bytes16);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(formatOf(bytesOf(whole.substr(0, size))), std::nullopt) << size;
  }
  EXPECT_EQ(formatOf(bytesOf(whole + std::string(3, '\0'))), GidSize::Bytes16);
  EXPECT_EQ(formatOf(bytesOf(whole + std::string(4, '\0'))), std::nullopt);
  std::string bigEndian = whole;
  bigEndian[1] = '\0';
  EXPECT_EQ(formatOf(bytesOf(bigEndian)), std::nullopt);
  EXPECT_EQ(formatOf(bytesOf(std::string(gk::ros2::kMostGraphBytes + 1, '\0'))), std::nullopt);
}

TEST(Ros2Graph, ItIsToldInTheFormatOfTheOthersAndNotBefore) {
  GraphFormat sut = *GraphFormat::named("auto");
  EXPECT_TRUE(sut.isWatching());
  EXPECT_EQ(sut.size(), std::nullopt);

  sut.see(bytesOf("nonsense"));
  EXPECT_EQ(sut.size(), std::nullopt);
  sut.see(bytesOf(graphMessage(node(2), GidSize::Bytes24)));
  EXPECT_EQ(sut.size(), GidSize::Bytes24);
  EXPECT_FALSE(sut.isMixed());
}

TEST(Ros2Graph, WhereBothFormatsAreSpokenItIsNotToldAnyMore) {
  GraphFormat sut = *GraphFormat::named("auto");
  sut.see(bytesOf(graphMessage(node(2), GidSize::Bytes16)));
  sut.see(bytesOf(graphMessage(node(1), GidSize::Bytes24)));

  EXPECT_TRUE(sut.isMixed());
  EXPECT_EQ(sut.size(), std::nullopt);
  sut.see(bytesOf(graphMessage(node(2), GidSize::Bytes16)));
  EXPECT_EQ(sut.size(), std::nullopt);
}

TEST(Ros2Graph, SettingsNameTheFormatOrNone) {
  EXPECT_EQ(GraphFormat::named("gid16")->size(), GidSize::Bytes16);
  EXPECT_EQ(GraphFormat::named("gid24")->size(), GidSize::Bytes24);
  EXPECT_FALSE(GraphFormat::named("gid16")->isWatching());
  EXPECT_FALSE(GraphFormat::named("off")->isWatching());
  EXPECT_EQ(GraphFormat::named("off")->size(), std::nullopt);
  EXPECT_FALSE(GraphFormat::named("gid32").has_value());
}

} // namespace
