#include "extensions/ros2/Participant.h"

#include "extensions/ros2/DdsType.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <dds/dds.h>
#include <dds/ddsrt/log.h>
#include <memory>
#include <utility>

namespace gk::ros2 {

namespace {

/// What ROS reads of a participant: it belongs to no security enclave of its own.
constexpr const char* kParticipantData = "enclave=/;";
/// Writing waits so long for room.
constexpr dds_duration_t kBlocking = DDS_MSECS(1);
/// At the end all writers together are waited for so long.
constexpr std::chrono::milliseconds kLastWait{50};

using Qos = std::unique_ptr<dds_qos_t, decltype(&dds_delete_qos)>;

[[noreturn]] void fail(const std::string& what, dds_return_t code) {
  throw DdsError(what + ": " + dds_strretcode(code));
}

Qos makeQos(const std::string& typeHash, const Offer& offer) {
  Qos qos(dds_create_qos(), dds_delete_qos);
  const std::string data = "typehash=" + typeHash + ";";
  dds_qset_userdata(qos.get(), data.data(), data.size());
  dds_qset_reliability(qos.get(), DDS_RELIABILITY_RELIABLE, kBlocking);
  dds_qset_history(qos.get(), DDS_HISTORY_KEEP_LAST, offer.depth);
  dds_qset_writer_data_lifecycle(qos.get(), false);
  const dds_data_representation_id_t plain = DDS_DATA_REPRESENTATION_XCDR1;
  dds_qset_data_representation(qos.get(), 1, &plain);
  if (offer.isLatched) {
    dds_qset_durability(qos.get(), DDS_DURABILITY_TRANSIENT_LOCAL);
    dds_qset_durability_service(qos.get(), 0, DDS_HISTORY_KEEP_LAST, offer.depth,
                                DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED);
  }
  if (offer.lifespan.count() > 0) {
    dds_qset_lifespan(qos.get(), offer.lifespan.count());
  }
  return qos;
}

void passOn(void* tell, const dds_log_data_t* data) {
  if ((data->priority & (DDS_LC_FATAL | DDS_LC_ERROR | DDS_LC_WARNING)) == 0) {
    return;
  }
  std::string line = data->message + data->hdrsize;
  while (!line.empty() && line.back() == '\n') {
    line.pop_back();
  }
  (*static_cast<std::function<void(const std::string&)>*>(tell))(line);
}

} // namespace

Participant::Participant(std::uint32_t domain, const std::string& configuration,
                         std::function<void(const std::string&)> tell)
    : fTell(std::move(tell)) {
  dds_set_log_sink(passOn, &fTell);
  fDomain = dds_create_domain(domain, configuration.c_str());
  if (fDomain < 0) {
    dds_set_log_sink(nullptr, nullptr);
    fail("DDS takes no such configuration (look at CYCLONEDDS_URI, where it is set)", fDomain);
  }
  const Qos qos(dds_create_qos(), dds_delete_qos);
  dds_qset_userdata(qos.get(), kParticipantData, std::strlen(kParticipantData));
  fParticipant = dds_create_participant(domain, qos.get(), nullptr);
  if (fParticipant < 0) {
    dds_delete(fDomain);
    dds_set_log_sink(nullptr, nullptr);
    fail("no participant in DDS domain " + std::to_string(domain), fParticipant);
  }
}

Participant::~Participant() {
  // What was sent last arrives where readers are well; one that has stopped keeps nobody from
  // ending.
  const auto end = std::chrono::steady_clock::now() + kLastWait;
  for (const Writer& writer : fWriters) {
    const std::chrono::nanoseconds left = end - std::chrono::steady_clock::now();
    dds_wait_for_acks(writer.handle, std::max<dds_duration_t>(left.count(), 0));
  }
  dds_delete(fParticipant);
  dds_delete(fDomain);
  dds_set_log_sink(nullptr, nullptr);
}

Participant::Handle Participant::xAddTopic(const std::string& name, const std::string& type,
                                           const ddsi_sertype** used) {
  ddsi_sertype* made = makeType(type);
  const Handle topic =
      dds_create_topic_sertype(fParticipant, name.c_str(), &made, nullptr, nullptr, nullptr);
  if (topic < 0) {
    dropType(made);
    fail("topic " + name, topic);
  }
  *used = made;
  return topic;
}

Participant::Handle Participant::addWriter(const std::string& topic, const std::string& type,
                                           const std::string& typeHash, const Offer& offer) {
  const ddsi_sertype* used = nullptr;
  const Handle made = xAddTopic(topic, type, &used);
  const Handle writer =
      dds_create_writer(fParticipant, made, makeQos(typeHash, offer).get(), nullptr);
  // The writer keeps it.
  dds_delete(made);
  if (writer < 0) {
    fail("writer to " + topic, writer);
  }
  fWriters.push_back({writer, used});
  return writer;
}

Participant::Handle Participant::addReader(const std::string& topic, const std::string& type,
                                           const std::string& typeHash) {
  const ddsi_sertype* used = nullptr;
  const Handle made = xAddTopic(topic, type, &used);
  const Qos qos = makeQos(typeHash, {.isLatched = true, .depth = 1});
  dds_qset_history(qos.get(), DDS_HISTORY_KEEP_ALL, 0);
  // What waits is bounded: it comes from strangers.
  dds_qset_resource_limits(qos.get(), 256, DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED);
  dds_qset_ignorelocal(qos.get(), DDS_IGNORELOCAL_PARTICIPANT);
  const Handle reader = dds_create_reader(fParticipant, made, qos.get(), nullptr);
  dds_delete(made);
  if (reader < 0) {
    fail("reader of " + topic, reader);
  }
  return reader;
}

void Participant::remove(Handle handle) {
  std::erase_if(fWriters, [handle](const Writer& writer) { return writer.handle == handle; });
  dds_delete(handle);
}

bool Participant::write(Handle writer, std::string_view bytes) {
  const auto known = std::ranges::find(fWriters, writer, &Writer::handle);
  return known != fWriters.end() &&
         dds_writecdr(writer, makeSample(known->type, bytes)) == DDS_RETCODE_OK;
}

void Participant::take(Handle reader,
                       const std::function<void(std::span<const std::uint8_t>)>& give) {
  std::array<ddsi_serdata*, 16> samples{};
  std::array<dds_sample_info_t, 16> infos{};
  int count = 0;
  while ((count = dds_takecdr(reader, samples.data(), samples.size(), infos.data(),
                              DDS_ANY_STATE)) > 0) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
      if (infos[i].valid_data) {
        give(bytesOf(samples[i]));
      }
      dropSample(samples[i]);
    }
  }
}

std::uint32_t Participant::readers(Handle writer) const {
  dds_publication_matched_status_t status{};
  return dds_get_publication_matched_status(writer, &status) == DDS_RETCODE_OK
             ? status.current_count
             : 0;
}

Gid Participant::xGid(Handle entity) {
  dds_guid_t guid{};
  dds_get_guid(entity, &guid);
  Gid gid{};
  std::copy(std::begin(guid.v), std::end(guid.v), gid.begin());
  return gid;
}

} // namespace gk::ros2
