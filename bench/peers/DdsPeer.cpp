#include "bench/peers/Peer.h"
#include "Sample.h"

#include <array>
#include <dds/dds.h>

namespace gk::bench {

namespace {

/// A writer and a reader with a listener in one participant.
class DdsPeer : public Peer {
public:
  DdsPeer() {
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(10));
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    const dds_entity_t topic =
        dds_create_topic(fParticipant, &gkbench_Sample_desc, "Sample", nullptr, nullptr);
    dds_listener_t* listener = dds_create_listener(this);
    dds_lset_data_available(listener, [](dds_entity_t reader, void* self) {
      static_cast<DdsPeer*>(self)->take(reader);
    });
    dds_create_reader(fParticipant, topic, qos, listener);
    fWriter = dds_create_writer(fParticipant, topic, qos, nullptr);
    dds_delete_listener(listener);
    dds_delete_qos(qos);
  }
  ~DdsPeer() override { dds_delete(fParticipant); }

  void publish(float value) override {
    const gkbench_Sample sample{value};
    dds_write(fWriter, &sample);
  }

private:
  void take(dds_entity_t reader) {
    std::array<void*, 64> samples{};
    std::array<dds_sample_info_t, 64> infos{};
    int count = 0;
    while ((count = dds_take(reader, samples.data(), infos.data(), samples.size(),
                             samples.size())) > 0) {
      for (int i = 0; i < count; ++i) {
        arrived();
      }
      dds_return_loan(reader, samples.data(), count);
    }
  }

  dds_entity_t fParticipant = dds_create_participant(DDS_DOMAIN_DEFAULT, nullptr, nullptr);
  dds_entity_t fWriter = 0;
};

} // namespace

std::unique_ptr<Peer> makeDdsPeer() {
  return std::make_unique<DdsPeer>();
}

} // namespace gk::bench
