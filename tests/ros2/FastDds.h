#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#if __has_include(<fastrtps/config.h>)
#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <fastrtps/config.h>
#else
#include <fastdds/config.hpp>
#include <fastdds/rtps/transport/UDPv4TransportDescriptor.hpp>
#define GK_FAST_DDS_3
#endif
#include <fastcdr/Cdr.h>
#include <fastdds/dds/core/condition/GuardCondition.hpp>
#include <fastdds/dds/core/condition/StatusCondition.hpp>
#include <fastdds/dds/core/condition/WaitSet.hpp>
#include <fastdds/dds/domain/DomainParticipant.hpp>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>
#include <fastdds/dds/domain/DomainParticipantListener.hpp>
#include <fastdds/dds/subscriber/DataReader.hpp>
#include <fastdds/dds/subscriber/SampleInfo.hpp>
#include <fastdds/dds/subscriber/Subscriber.hpp>
#include <fastdds/dds/topic/TopicDataType.hpp>
#include <fastdds/dds/topic/TypeSupport.hpp>

// What differs between Fast DDS 2 and 3.
namespace gk::test {

namespace dds = eprosima::fastdds::dds;

#ifdef GK_FAST_DDS_3
using Payload = eprosima::fastdds::rtps::SerializedPayload_t;
using Instance = eprosima::fastdds::rtps::InstanceHandle_t;
using Duration = dds::Duration_t;
inline bool isOk(dds::ReturnCode_t code) {
  return code == dds::RETCODE_OK;
}
#else
using Payload = eprosima::fastrtps::rtps::SerializedPayload_t;
using Instance = eprosima::fastrtps::rtps::InstanceHandle_t;
using Duration = eprosima::fastrtps::Duration_t;
inline bool isOk(const ReturnCode_t& code) {
  return code == ReturnCode_t::RETCODE_OK;
}
#endif

using Bytes = std::vector<char>;

/// The longest sample that readers take.
constexpr std::uint32_t kMostBytes = 1 << 16;

/// Samples as they came.
class RawType : public dds::TopicDataType {
public:
  explicit RawType(const std::string& name) {
#ifdef GK_FAST_DDS_3
    set_name(name);
    max_serialized_type_size = kMostBytes;
    is_compute_key_provided = false;
#else
    setName(name.c_str());
    m_typeSize = kMostBytes;
    m_isGetKeyDefined = false;
    auto_fill_type_object(false);
    auto_fill_type_information(false);
#endif
  }

#ifdef GK_FAST_DDS_3
  bool serialize(const void*, Payload&, dds::DataRepresentationId_t) override {
    return false;
  }
  bool deserialize(Payload& payload, void* data) override {
    return keep(payload, data);
  }
  std::uint32_t calculate_serialized_size(const void*, dds::DataRepresentationId_t) override {
    return 0;
  }
  void* create_data() override {
    return new Bytes;
  }
  void delete_data(void* data) override {
    delete static_cast<Bytes*>(data);
  }
  bool compute_key(Payload&, Instance&, bool) override {
    return false;
  }
  bool compute_key(const void*, Instance&, bool) override {
    return false;
  }
#else
  bool serialize(void*, Payload*) override {
    return false;
  }
  bool deserialize(Payload* payload, void* data) override {
    return keep(*payload, data);
  }
  std::function<std::uint32_t()> getSerializedSizeProvider(void*) override {
    return [] { return 0U; };
  }
  void* createData() override {
    return new Bytes;
  }
  void deleteData(void* data) override {
    delete static_cast<Bytes*>(data);
  }
  bool getKey(void*, Instance*, bool) override {
    return false;
  }
#endif

private:
  static bool keep(const Payload& payload, void* data) {
    const char* begin = reinterpret_cast<const char*>(payload.data);
    static_cast<Bytes*>(data)->assign(begin, begin + payload.length);
    return true;
  }
};

/// A writer that was found.
struct FoundWriter {
  std::string topic;
  std::string type;
  bool isReliable = false;
  bool isLatched = false;
  std::string userData;
};

/// Tells of each writer that was found, on threads of Fast DDS.
class Finder : public dds::DomainParticipantListener {
public:
  explicit Finder(std::function<void(const FoundWriter&)> tell) : fTell(std::move(tell)) {}

#ifdef GK_FAST_DDS_3
  void on_data_writer_discovery(dds::DomainParticipant*,
                                eprosima::fastdds::rtps::WriterDiscoveryStatus status,
                                const dds::PublicationBuiltinTopicData& info, bool&) override {
    if (status == eprosima::fastdds::rtps::WriterDiscoveryStatus::DISCOVERED_WRITER) {
      fTell({info.topic_name.to_string(), info.type_name.to_string(),
             info.reliability.kind == dds::RELIABLE_RELIABILITY_QOS,
             info.durability.kind == dds::TRANSIENT_LOCAL_DURABILITY_QOS,
             std::string(info.user_data.begin(), info.user_data.end())});
    }
  }
#else
  void on_publisher_discovery(dds::DomainParticipant*,
                              eprosima::fastrtps::rtps::WriterDiscoveryInfo&& found) override {
    if (found.status == eprosima::fastrtps::rtps::WriterDiscoveryInfo::DISCOVERED_WRITER) {
      const auto& info = found.info;
      fTell({info.topicName().to_string(), info.typeName().to_string(),
             info.m_qos.m_reliability.kind == dds::RELIABLE_RELIABILITY_QOS,
             info.m_qos.m_durability.kind == dds::TRANSIENT_LOCAL_DURABILITY_QOS,
             std::string(info.m_qos.m_userData.begin(), info.m_qos.m_userData.end())});
    }
  }
#endif

private:
  std::function<void(const FoundWriter&)> fTell;
};

/// Reads a sample as Fast CDR sees it.
class Cdr {
public:
  explicit Cdr(Bytes& bytes)
      : fBuffer(bytes.data(), bytes.size()),
#ifdef GK_FAST_DDS_3
        fCdr(fBuffer, eprosima::fastcdr::Cdr::DEFAULT_ENDIAN,
             eprosima::fastcdr::CdrVersion::XCDRv1) {
#else
        fCdr(fBuffer, eprosima::fastcdr::Cdr::DEFAULT_ENDIAN, eprosima::fastcdr::Cdr::DDS_CDR) {
#endif
    fCdr.read_encapsulation();
  }

  template <class T> T take() {
    T value{};
    fCdr >> value;
    return value;
  }

private:
  eprosima::fastcdr::FastBuffer fBuffer;
  eprosima::fastcdr::Cdr fCdr;
};

} // namespace gk::test
