#include "extensions/ros2/DdsType.h"

#include <algorithm>
#include <cstring>
#include <dds/dds.h>
#include <dds/ddsi/ddsi_serdata.h>
#include <dds/ddsi/ddsi_sertype.h>
#include <dds/ddsi/q_radmin.h>
#include <dds/version.h>

static_assert(DDS_VERSION_MAJOR == 0 && DDS_VERSION_MINOR == 10,
              "what is said here of samples and types holds for Cyclone DDS 0.10");

namespace gk::ros2 {

namespace {

#ifdef DDS_HAS_SHM
constexpr std::size_t kSharedMemory = 2;
#else
constexpr std::size_t kSharedMemory = 0;
#endif

// Cyclone's configuration decides about members: a build with other settings than the library's
// would write past them.
static_assert(sizeof(void*) != 8 || sizeof(ddsi_serdata) == 56 + kSharedMemory * sizeof(void*));
static_assert(sizeof(ddsi_serdata_ops) == (15 + kSharedMemory) * sizeof(void*));
static_assert(sizeof(ddsi_sertype_ops) == 14 * sizeof(void*));

/// Payloads of the protocol come in steps of four bytes.
constexpr std::size_t kStep = 4;

struct Sample : ddsi_serdata {
  Sample(const ddsi_sertype* itsType, ddsi_serdata_kind itsKind) : ddsi_serdata{} {
    ddsi_serdata_init(this, itsType, itsKind);
    hash = itsType->serdata_basehash;
  }

  /// Fills up to the step, and tells in the encapsulation by how much.
  void pad() {
    const std::size_t missing = (kStep - bytes.size() % kStep) % kStep;
    if (missing > 0 && bytes.size() >= kStep) {
      bytes.resize(bytes.size() + missing);
      bytes[3] = static_cast<std::uint8_t>((bytes[3] & ~3U) | missing);
    }
  }

  std::vector<std::uint8_t> bytes;
};

struct OpaqueType : ddsi_sertype {};

const Sample& sampleOf(const ddsi_serdata* sample) {
  return *static_cast<const Sample*>(sample);
}

/// Samples without a key are all of one instance.
bool equalKeys(const ddsi_serdata*, const ddsi_serdata*) {
  return true;
}

std::uint32_t sizeOf(const ddsi_serdata* sample) {
  return static_cast<std::uint32_t>(sampleOf(sample).bytes.size());
}

ddsi_serdata* fromFragments(const ddsi_sertype* type, ddsi_serdata_kind kind,
                            const nn_rdata* fragment, std::size_t size) {
  auto* sample = new Sample(type, kind);
  if (size > kMostBytes) {
    return sample;
  }
  std::vector<std::uint8_t>& bytes = sample->bytes;
  bytes.reserve(size + kStep);
  // They may overlap.
  for (; fragment != nullptr; fragment = fragment->nextfrag) {
    if (fragment->maxp1 > bytes.size() && fragment->min <= bytes.size()) {
      const std::uint8_t* payload =
          NN_RMSG_PAYLOADOFF(fragment->rmsg, NN_RDATA_PAYLOAD_OFF(fragment));
      const std::size_t done = bytes.size() - fragment->min;
      bytes.insert(bytes.end(), payload + done, payload + (fragment->maxp1 - fragment->min));
    }
  }
  bytes.resize(std::min(bytes.size(), size));
  return sample;
}

ddsi_serdata* fromPieces(const ddsi_sertype* type, ddsi_serdata_kind kind, ddsrt_msg_iovlen_t count,
                         const ddsrt_iovec_t* pieces, std::size_t size) {
  auto* sample = new Sample(type, kind);
  if (size > kMostBytes) {
    return sample;
  }
  for (ddsrt_msg_iovlen_t i = 0; i < count; ++i) {
    const auto* begin = static_cast<const std::uint8_t*>(pieces[i].iov_base);
    sample->bytes.insert(sample->bytes.end(), begin, begin + pieces[i].iov_len);
  }
  return sample;
}

ddsi_serdata* fromKeyHash(const ddsi_sertype* type, const ddsi_keyhash*) {
  return new Sample(type, SDK_KEY);
}

/// Nobody writes samples in another form than bytes.
ddsi_serdata* fromSample(const ddsi_sertype*, ddsi_serdata_kind, const void*) {
  return nullptr;
}

void copyOut(const ddsi_serdata* sample, std::size_t offset, std::size_t size, void* buffer) {
  const std::vector<std::uint8_t>& bytes = sampleOf(sample).bytes;
  const std::size_t there = std::min(size, bytes.size() - std::min(offset, bytes.size()));
  std::memset(buffer, 0, size);
  std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(std::min(offset, bytes.size())), there,
              static_cast<std::uint8_t*>(buffer));
}

ddsi_serdata* lend(const ddsi_serdata* sample, std::size_t offset, std::size_t size,
                   ddsrt_iovec_t* piece) {
  // What is lent is only read.
  piece->iov_base = const_cast<std::uint8_t*>(sampleOf(sample).bytes.data()) + offset;
  piece->iov_len = static_cast<ddsrt_iov_len_t>(size);
  return ddsi_serdata_ref(sample);
}

void takeBack(ddsi_serdata* sample, const ddsrt_iovec_t*) {
  ddsi_serdata_unref(sample);
}

bool toSample(const ddsi_serdata*, void*, void**, void*) {
  return false;
}

ddsi_serdata* toUntyped(const ddsi_serdata* sample) {
  auto* untyped = new Sample(sample->type, SDK_KEY);
  untyped->type = nullptr;
  return untyped;
}

bool untypedToSample(const ddsi_sertype*, const ddsi_serdata*, void*, void**, void*) {
  return true;
}

void freeSample(ddsi_serdata* sample) {
  delete static_cast<Sample*>(sample);
}

std::size_t print(const ddsi_sertype* type, const ddsi_serdata* sample, char* buffer,
                  std::size_t size) {
  const std::string text = std::string(type != nullptr ? type->type_name : "key") + ", " +
                           std::to_string(sampleOf(sample).bytes.size()) + " bytes";
  const std::size_t most = std::min(size - 1, text.size());
  text.copy(buffer, most);
  buffer[most] = '\0';
  return text.size();
}

void keyHash(const ddsi_serdata*, ddsi_keyhash* hash, bool) {
  std::memset(hash, 0, sizeof *hash);
}

#ifdef DDS_HAS_SHM
// Shared memory stays unused: types that have no fixed size do not go through it.
std::uint32_t sharedSize(const ddsi_serdata*) {
  return 0;
}

ddsi_serdata* fromShared(const ddsi_sertype*, ddsi_serdata_kind, void*, void*) {
  return nullptr;
}
#endif

constexpr ddsi_serdata_ops kSampleOperations = {
    .eqkey = equalKeys,
    .get_size = sizeOf,
    .from_ser = fromFragments,
    .from_ser_iov = fromPieces,
    .from_keyhash = fromKeyHash,
    .from_sample = fromSample,
    .to_ser = copyOut,
    .to_ser_ref = lend,
    .to_ser_unref = takeBack,
    .to_sample = toSample,
    .to_untyped = toUntyped,
    .untyped_to_sample = untypedToSample,
    .free = freeSample,
    .print = print,
    .get_keyhash = keyHash,
#ifdef DDS_HAS_SHM
    .get_sample_size = sharedSize,
    .from_iox_buffer = fromShared,
#endif
};

void freeType(ddsi_sertype* type) {
  ddsi_sertype_fini(type);
  delete static_cast<OpaqueType*>(type);
}

void zeroSamples(const ddsi_sertype*, void*, std::size_t) {}
void reallocSamples(void**, const ddsi_sertype*, void*, std::size_t, std::size_t) {}
void freeSamples(const ddsi_sertype*, void**, std::size_t, dds_free_op_t) {}

/// What differs between types is their names, which Cyclone compares.
bool equalTypes(const ddsi_sertype*, const ddsi_sertype*) {
  return true;
}

std::uint32_t hashOf(const ddsi_sertype*) {
  return 0;
}

std::size_t serializedSize(const ddsi_sertype*, const void*) {
  return SIZE_MAX;
}

bool serializeInto(const ddsi_sertype*, const void*, void*, std::size_t) {
  return false;
}

// Without type information others match these types by their names, as all of ROS does.
constexpr ddsi_sertype_ops kTypeOperations = {
    .version = ddsi_sertype_v0,
    .arg = nullptr,
    .free = freeType,
    .zero_samples = zeroSamples,
    .realloc_samples = reallocSamples,
    .free_samples = freeSamples,
    .equal = equalTypes,
    .hash = hashOf,
    .type_id = nullptr,
    .type_map = nullptr,
    .type_info = nullptr,
    .derive_sertype = nullptr,
    .get_serialized_size = serializedSize,
    .serialize_into = serializeInto,
};

} // namespace

ddsi_sertype* makeType(const std::string& name) {
  auto* type = new OpaqueType{};
  ddsi_sertype_init_flags(type, name.c_str(), &kTypeOperations, &kSampleOperations,
                          DDSI_SERTYPE_FLAG_TOPICKIND_NO_KEY);
  type->allowed_data_representation = DDS_DATA_REPRESENTATION_FLAG_XCDR1;
  return type;
}

void dropType(ddsi_sertype* type) {
  ddsi_sertype_unref(type);
}

ddsi_serdata* makeSample(const ddsi_sertype* type, std::string_view bytes) {
  auto* sample = new Sample(type, SDK_DATA);
  sample->bytes.reserve(bytes.size() + kStep);
  sample->bytes.assign(bytes.begin(), bytes.end());
  sample->pad();
  return sample;
}

std::span<const std::uint8_t> bytesOf(const ddsi_serdata* sample) {
  return sampleOf(sample).bytes;
}

void dropSample(ddsi_serdata* sample) {
  ddsi_serdata_unref(sample);
}

} // namespace gk::ros2
