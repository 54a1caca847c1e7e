#pragma once

#include "messages/ros/Messages.h"

#include <algorithm>
#include <type_traits>

namespace gk::messages::ros {

/// A message type as text and hash are made of it.
struct Description {
  struct Member {
    std::string name;
    /// As definitions write it: "float64[9]", "geometry_msgs/Vector3".
    std::string type;
    /// As hashes know it.
    int id = 0;
    std::size_t capacity = 0;
    std::size_t stringCapacity = 0;
    /// "geometry_msgs/msg/Vector3" for a message in a message.
    std::string nested;
  };

  std::string name;
  std::vector<Member> members;
  /// All types within, each once, in the order of their appearance.
  std::vector<Description> nested;
};

/// The definition as `ros2msg` text.
std::string definitionOf(const Description& description);

/// The text whose SHA-256 is the type's hash (REP 2016, version 1).
std::string hashedTextOf(const Description& description);

/// "sensor_msgs/Range" of "sensor_msgs/msg/Range".
std::string shortNameOf(std::string_view name);

/// "sensor_msgs::msg::dds_::Range_".
std::string ddsNameOf(std::string_view name);

template <class M> Description describe();

namespace describing {

// Numbers of the kinds of types, and what makes an array of one; from type_description_interfaces.
constexpr int kNested = 1;
constexpr int kArray = 48;
constexpr int kSequence = 144;

template <class T> struct Is {};
template <std::size_t N> struct Is<BoundedString<N>> {
  static constexpr std::size_t kCapacity = N;
};
template <class T, std::size_t N> struct Is<std::array<T, N>> {
  static constexpr std::size_t kSize = N;
};
template <class T> struct Is<std::vector<T>> { using Element = T; };

/// Fills in all but the name.
template <class T> void put(Description::Member& member, Description& whole) {
  const auto plain = [&member](std::string_view type, int id) {
    member.type = type;
    member.id = id;
  };
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    plain("uint8", 3);
  } else if constexpr (std::is_same_v<T, Char>) {
    plain("char", 3);
  } else if constexpr (std::is_same_v<T, std::int32_t>) {
    plain("int32", 6);
  } else if constexpr (std::is_same_v<T, std::uint32_t>) {
    plain("uint32", 7);
  } else if constexpr (std::is_same_v<T, float>) {
    plain("float32", 10);
  } else if constexpr (std::is_same_v<T, double>) {
    plain("float64", 11);
  } else if constexpr (std::is_same_v<T, bool>) {
    plain("bool", 15);
  } else if constexpr (std::is_same_v<T, std::byte>) {
    plain("byte", 16);
  } else if constexpr (std::is_same_v<T, std::string>) {
    plain("string", 17);
  } else if constexpr (requires { Is<T>::kCapacity; }) {
    member.stringCapacity = Is<T>::kCapacity;
    plain("string<=" + std::to_string(member.stringCapacity), 21);
  } else if constexpr (requires { Is<T>::kSize; }) {
    put<typename T::value_type>(member, whole);
    member.capacity = Is<T>::kSize;
    plain(member.type + "[" + std::to_string(member.capacity) + "]", member.id + kArray);
  } else if constexpr (requires { typename Is<T>::Element; }) {
    put<typename T::value_type>(member, whole);
    plain(member.type + "[]", member.id + kSequence);
  } else {
    member.nested = T::kName;
    plain(shortNameOf(T::kName), kNested);
    Description inner = describe<T>();
    std::vector<Description> within = std::move(inner.nested);
    within.insert(within.begin(), std::move(inner));
    for (Description& one : within) {
      if (std::ranges::find(whole.nested, one.name, &Description::name) == whole.nested.end()) {
        one.nested.clear();
        whole.nested.push_back(std::move(one));
      }
    }
  }
}

template <class M, class F> void add(const Field<M, F>& field, Description& whole) {
  Description::Member member;
  member.name = field.name;
  put<F>(member, whole);
  whole.members.push_back(std::move(member));
}

} // namespace describing

template <class M> Description describe() {
  Description whole;
  whole.name = M::kName;
  std::apply([&](const auto&... field) { (describing::add(field, whole), ...); }, M::fields());
  return whole;
}

} // namespace gk::messages::ros
