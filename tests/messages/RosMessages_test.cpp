#include "messages/json/Json.h"
#include "messages/ros/Cdr.h"
#include "messages/ros/Describe.h"
#include "messages/ros/Types.h"
#include "messages/RosSamples.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <openssl/evp.h>
#include <sstream>
#include <string>
#include <type_traits>

using namespace gk::messages;
using testing::Eq;
using testing::StartsWith;

namespace {

std::string hexOf(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += digits[value / 16];
    text += digits[value % 16];
  }
  return text;
}

std::string sha256Of(const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr);
  const std::string bytes(digest.begin(), digest.begin() + size);
  return hexOf(bytes);
}

/// What is known of the messages of `eachSample`. Other programs' readers and writers are held
/// against the same file.
const boost::json::array& goldenMessages() {
  static const boost::json::value all = [] {
    const std::ifstream file(GK_SOURCE_DIR "/tests/messages/ros_messages.json");
    std::ostringstream text;
    text << file.rdbuf();
    return parseJson(text.str());
  }();
  return all.as_array();
}

std::string golden(std::size_t index, const char* member) {
  return std::string(goldenMessages().at(index).as_object().at(member).as_string());
}

} // namespace

TEST(RosMessages, HashesAreThoseOfWhatTheTypesAreMadeOf) {
  ros::eachSample([](const auto& message) {
    using M = std::decay_t<decltype(message)>;
    EXPECT_EQ(ros::typeOf<M>().hash, "RIHS01_" + sha256Of(ros::hashedTextOf(ros::describe<M>())))
        << M::kName;
  });
}

TEST(RosMessages, AreEncodedAndDefinedAsOthersReadThem) {
  std::size_t index = 0;
  std::string cdr;
  ros::eachSample([&](const auto& message) {
    using M = std::decay_t<decltype(message)>;
    SCOPED_TRACE(std::string(M::kName));
    ASSERT_LT(index, goldenMessages().size());
    const ros::Type& type = ros::typeOf<M>();
    ros::encode(message, cdr);
    EXPECT_EQ(type.name, golden(index, "name"));
    EXPECT_EQ(type.hash, golden(index, "hash"));
    EXPECT_EQ(type.definition, golden(index, "definition"));
    EXPECT_EQ(hexOf(cdr), golden(index, "cdr"));
    ++index;
  });
  EXPECT_EQ(index, goldenMessages().size());
}

TEST(RosMessages, TextsCountTheirBytesAndTheZeroBehindThem) {
  std::string cdr;
  ros::encode(ros::String{"\xC3\xBC"}, cdr);
  EXPECT_EQ(hexOf(cdr), "00010000"
                        "03000000"
                        "c3bc00");
}

TEST(RosMessages, NumbersStandAtMultiplesOfTheirSizesBehindTheHeader) {
  std::string cdr;
  // 8 bytes of time, 4 of the text's length, 2 of the text; then a number of 8 bytes.
  ros::encode(ros::Temperature{{{1, 2}, "a"}, 1.0, 0.0}, cdr);
  EXPECT_EQ(hexOf(cdr), "00010000"
                        "01000000"
                        "02000000"
                        "02000000"
                        "6100"
                        "0000"
                        "000000000000f03f"
                        "0000000000000000");
}

TEST(RosMessages, EmptySequencesPutNothingBeforeTheirElements) {
  std::string cdr;
  ros::encode(ros::JointState{}, cdr);
  constexpr std::size_t header = 8 + 4 + 1;
  constexpr std::size_t padding = 3;
  constexpr std::size_t counts = 4 * 4;
  EXPECT_EQ(cdr.size(), 4 + header + padding + counts);
}

TEST(RosMessages, EncodingReplacesWhatWasThere) {
  std::string cdr = "something longer than a message of one byte";
  ros::encode(ros::Bool{true}, cdr);
  EXPECT_EQ(hexOf(cdr), "0001000001");
}

TEST(RosTypes, HaveNamesForDds) {
  EXPECT_EQ(ros::typeOf<ros::Range>().ddsName, "sensor_msgs::msg::dds_::Range_");
  EXPECT_EQ(ros::typeOf<ros::ParticipantEntitiesInfo>().ddsName,
            "rmw_dds_common::msg::dds_::ParticipantEntitiesInfo_");
}

TEST(RosTypes, DefinitionsTellEachTypeWithinOnce) {
  const std::string ruler(80, '=');
  EXPECT_EQ(ros::typeOf<ros::PointStamped>().definition, "std_msgs/Header header\n"
                                                         "geometry_msgs/Point point\n" +
                                                             ruler +
                                                             "\nMSG: std_msgs/Header\n"
                                                             "builtin_interfaces/Time stamp\n"
                                                             "string frame_id\n" +
                                                             ruler +
                                                             "\nMSG: builtin_interfaces/Time\n"
                                                             "int32 sec\n"
                                                             "uint32 nanosec\n" +
                                                             ruler +
                                                             "\nMSG: geometry_msgs/Point\n"
                                                             "float64 x\n"
                                                             "float64 y\n"
                                                             "float64 z\n");
  // Vector3 is in a wrench twice.
  const std::string wrench = ros::typeOf<ros::WrenchStamped>().definition;
  const std::string vector = "MSG: geometry_msgs/Vector3\n";
  EXPECT_NE(wrench.find(vector), std::string::npos);
  EXPECT_EQ(wrench.find(vector), wrench.rfind(vector));
  EXPECT_THAT(wrench, StartsWith("std_msgs/Header header\n"));
}
