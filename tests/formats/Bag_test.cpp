#include "formats/bag/BagMetadata.h"
#include "formats/bag/BagWriter.h"
#include "formats/files/OutputError.h"
#include "formats/files/OutputFile.h"
#include "formats/files/OutputFolder.h"
#include "formats/files/PartFiles.h"
#include "messages/ros/Cdr.h"
#include "messages/ros/Types.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace gk::formats;
namespace ros = gk::messages::ros;
using gk::test::TemporaryFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

std::string textIn(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

std::string errorOf(const std::string& folder) {
  try {
    const OutputFolder sut(folder);
  } catch (const OutputError& error) {
    return error.what();
  }
  return "no error";
}

} // namespace

TEST(BagMetadata, TellsAllThatReadersOfVersion5Demand) {
  BagMetadata sut;
  sut.file = "run_0.mcap";
  sut.begin = 1'700'000'000'000'000'000;
  sut.end = sut.begin + 20'000'000;
  sut.messages = 3;
  sut.topics = {{"/imu/data", "sensor_msgs/msg/Imu", ros::Profile::Stream, 3}};
  EXPECT_EQ(bagMetadataText(sut),
            "rosbag2_bagfile_information:\n"
            "  version: 5\n"
            "  storage_identifier: mcap\n"
            "  duration:\n"
            "    nanoseconds: 20000000\n"
            "  starting_time:\n"
            "    nanoseconds_since_epoch: 1700000000000000000\n"
            "  message_count: 3\n"
            "  topics_with_message_count:\n"
            "    - topic_metadata:\n"
            "        name: /imu/data\n"
            "        type: sensor_msgs/msg/Imu\n"
            "        serialization_format: cdr\n"
            "        offered_qos_profiles: \"- history: 1\\n  depth: 10\\n  reliability: 1\\n"
            "  durability: 2\\n  deadline:\\n    sec: 9223372036\\n    nsec: 854775807\\n"
            "  lifespan:\\n    sec: 9223372036\\n    nsec: 854775807\\n  liveliness: 1\\n"
            "  liveliness_lease_duration:\\n    sec: 9223372036\\n    nsec: 854775807\\n"
            "  avoid_ros_namespace_conventions: false\\n\"\n"
            "      message_count: 3\n"
            "  compression_format: \"\"\n"
            "  compression_mode: \"\"\n"
            "  relative_file_paths:\n"
            "    - \"run_0.mcap\"\n"
            "  files:\n"
            "    - path: \"run_0.mcap\"\n"
            "      starting_time:\n"
            "        nanoseconds_since_epoch: 1700000000000000000\n"
            "      duration:\n"
            "        nanoseconds: 20000000\n"
            "      message_count: 3\n");
}

TEST(BagMetadata, LogLinesAreOfferedForTenSeconds) {
  const std::string text = offeredQosOf(ros::Profile::Log);
  EXPECT_THAT(text, HasSubstr("  depth: 100\n"));
  EXPECT_THAT(text, HasSubstr("  durability: 1\n"));
  EXPECT_THAT(text, HasSubstr("  lifespan:\n    sec: 10\n    nsec: 0\n  liveliness: 1\n"));
}

TEST(BagWriter, TheFolderAppearsWhenTheBagIsComplete) {
  const TemporaryFolder folder;
  const ros::Topic topic{"/touch/chest", &ros::typeOf<ros::Bool>(), ros::Profile::Latched, false};
  std::string cdr;
  ros::encode(ros::Bool{true}, cdr);
  {
    BagWriter sut(folder.file("run/"), mcap::Compression::Zstd, "test");
    sut.write(topic, 2'000, cdr);
    sut.write(topic, 1'000, cdr);
    EXPECT_FALSE(fs::exists(folder.file("run")));
    sut.finish();
  }
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("run"));
  EXPECT_THAT(namesIn(folder.file("run")), UnorderedElementsAre("metadata.yaml", "run_0.mcap"));
  const std::string text = textIn(folder.file("run/metadata.yaml"));
  EXPECT_THAT(text, HasSubstr("nanoseconds_since_epoch: 1000\n"));
  EXPECT_THAT(text, HasSubstr("  duration:\n    nanoseconds: 1000\n"));
  EXPECT_THAT(text, HasSubstr("message_count: 2\n"));
}

TEST(BagWriter, LeavesNothingOfABagThatWasGivenUp) {
  const TemporaryFolder folder;
  {
    const BagWriter sut(folder.file("run"), mcap::Compression::Zstd, "test");
    EXPECT_THAT(namesIn(folder.path()), testing::SizeIs(1));
  }
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(OutputFolder, LeavesNothingWhenASignalEndsTheProcess) {
  const TemporaryFolder folder;
  const OutputFolder sut(folder.file("run"));
  const OutputFile file(sut.place() + "/a");
  EXPECT_THAT(namesIn(folder.path()), testing::SizeIs(1));
  removePartFiles();
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST(OutputFolder, NothingIsWrittenOver) {
  const TemporaryFolder folder;
  fs::create_directory(folder.file("run"));
  EXPECT_EQ(errorOf(folder.file("run/")),
            folder.file("run") + " exists already; " + folder.file("run-2") + " is free");
  std::ofstream(folder.file("file"));
  EXPECT_THAT(errorOf(folder.file("file")), HasSubstr("exists already"));
  EXPECT_THAT(errorOf(folder.file("none/run")), HasSubstr("No such file or directory"));
  EXPECT_THAT(errorOf("/"), HasSubstr("exists already"));
  EXPECT_THAT(errorOf(""), HasSubstr("it has no name"));
}

TEST(OutputFolder, OneThatCameMeanwhileStays) {
  const TemporaryFolder folder;
  {
    OutputFolder sut(folder.file("run"));
    fs::create_directory(folder.file("run"));
    EXPECT_THROW(sut.appear(), OutputError);
  }
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("run"));
  EXPECT_THAT(namesIn(folder.file("run")), IsEmpty());
}
