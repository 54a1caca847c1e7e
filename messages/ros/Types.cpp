#include "messages/ros/Types.h"

#include "messages/ros/Describe.h"

namespace gk::messages::ros {

namespace {

/// Made once from `describe<M>()`; a test holds it against that.
template <class M> constexpr std::string_view kHash;
template <> constexpr std::string_view kHash<Header> =
    "f49fb3ae2cf070f793645ff749683ac6b06203e41c891e17701b1cb597ce6a01";
template <> constexpr std::string_view kHash<Bool> =
    "feb91e995ff9ebd09c0cb3d2aed18b11077585839fb5db80193b62d74528f6c9";
template <> constexpr std::string_view kHash<Float32> =
    "7170d3d8f841f7be3172ce5f4f59f3a4d7f63b0447e8b33327601ad64d83d6e2";
template <> constexpr std::string_view kHash<String> =
    "df668c740482bbd48fb39d76a70dfd4bd59db1288021743503259e948f6b1a18";
template <> constexpr std::string_view kHash<Range> =
    "b42b62562e93cbfe9d42b82fe5994dfa3d63d7d5c90a317981703f7388adff3a";
template <> constexpr std::string_view kHash<Imu> =
    "7d9a00ff131080897a5ec7e26e315954b8eae3353c3f995c55faf71574000b5b";
template <> constexpr std::string_view kHash<JointState> =
    "a13ee3a330e346c9d87b5aa18d24e11690752bd33a0350f11c5882bc9179260e";
template <> constexpr std::string_view kHash<BatteryState> =
    "4bee5dfce981c98faa6828b868307a0a73f992ed0789f374ee96c8f840e69741";
template <> constexpr std::string_view kHash<Temperature> =
    "72514a14126ab9f8a9abec974c78e5610a367b59db5da355ff1fb982d5bad4b8";
template <> constexpr std::string_view kHash<WrenchStamped> =
    "8dc3deaf06b2ab281f9f9a742a8961c328ca7cec16e3fd6586d3a5c83fa78f77";
template <> constexpr std::string_view kHash<PointStamped> =
    "4c0296af86e01e562e9e0405d138a01537247580076c58ea38d7923ac1045897";
template <> constexpr std::string_view kHash<TransformStamped> =
    "0a241f87d04668d94099cbb5ba11691d5ad32c2f29682e4eb5653424bd275206";
template <> constexpr std::string_view kHash<TFMessage> =
    "e369d0f05a23ae52508854b66f6aa0437f3449d652e8cbf22d5abe85d020f087";
template <> constexpr std::string_view kHash<DiagnosticArray> =
    "5a8a36efb05fb25070fa0fb3810290c0e6cd4862b54a8fb975a1ee8dc55a333e";
template <> constexpr std::string_view kHash<DiagnosticStatus> =
    "b0e3e692ea2d54a8af2f4ef1930e81556a2db55216b771f8a7d2724ed47bf0e4";
template <> constexpr std::string_view kHash<Clock> =
    "692f7a66e93a3c83e71765d033b60349ba68023a8c689a79e48078bcb5c58564";
template <> constexpr std::string_view kHash<Log> =
    "e28ce254ca8abc06abf92773b74602cdbf116ed34fbaf294fb9f81da9f318eac";
template <> constexpr std::string_view kHash<ParticipantEntitiesInfo> =
    "91a0593bacdcc50ea9bdcf849a938b128412cc1ea821245c663bcd26f83c295e";

} // namespace

template <class M> const Type& typeOf() {
  static const Type type{std::string(M::kName), ddsNameOf(M::kName), definitionOf(describe<M>()),
                         std::string("RIHS01_").append(kHash<M>)};
  return type;
}

template const Type& typeOf<Header>();
template const Type& typeOf<Bool>();
template const Type& typeOf<Float32>();
template const Type& typeOf<String>();
template const Type& typeOf<Range>();
template const Type& typeOf<Imu>();
template const Type& typeOf<JointState>();
template const Type& typeOf<BatteryState>();
template const Type& typeOf<Temperature>();
template const Type& typeOf<WrenchStamped>();
template const Type& typeOf<PointStamped>();
template const Type& typeOf<TransformStamped>();
template const Type& typeOf<TFMessage>();
template const Type& typeOf<DiagnosticArray>();
template const Type& typeOf<DiagnosticStatus>();
template const Type& typeOf<Clock>();
template const Type& typeOf<Log>();
template const Type& typeOf<ParticipantEntitiesInfo>();

} // namespace gk::messages::ros
