#include "messages/ros/Describe.h"

namespace gk::messages::ros {

namespace {

constexpr std::string_view kKind = "/msg/";

std::string replaced(std::string_view name, std::string_view by) {
  const std::size_t place = name.find(kKind);
  return std::string(name.substr(0, place)).append(by).append(name.substr(place + kKind.size()));
}

void appendMembers(std::string& out, const Description& description) {
  for (const Description::Member& member : description.members) {
    out.append(member.type).append(" ").append(member.name).append("\n");
  }
}

void appendQuoted(std::string& out, std::string_view text) {
  out.append("\"").append(text).append("\"");
}

/// Nothing but letters, digits, "_" and "/" stands in names, so that nothing is to be escaped.
void appendHashed(std::string& out, const Description& description) {
  out += R"({"type_name": )";
  appendQuoted(out, description.name);
  out += R"(, "fields": [)";
  for (const Description::Member& member : description.members) {
    out += &member == description.members.data() ? "" : ", ";
    out += R"({"name": )";
    appendQuoted(out, member.name);
    out += R"(, "type": {"type_id": )" + std::to_string(member.id);
    out += R"(, "capacity": )" + std::to_string(member.capacity);
    out += R"(, "string_capacity": )" + std::to_string(member.stringCapacity);
    out += R"(, "nested_type_name": )";
    appendQuoted(out, member.nested);
    out += "}}";
  }
  out += "]}";
}

} // namespace

std::string shortNameOf(std::string_view name) {
  return replaced(name, "/");
}

std::string ddsNameOf(std::string_view name) {
  return replaced(name, "::msg::dds_::") + "_";
}

std::string definitionOf(const Description& description) {
  constexpr std::size_t ruler = 80;
  std::string text;
  appendMembers(text, description);
  for (const Description& nested : description.nested) {
    text.append(ruler, '=').append("\nMSG: ").append(shortNameOf(nested.name)).append("\n");
    appendMembers(text, nested);
  }
  return text;
}

std::string hashedTextOf(const Description& description) {
  std::vector<const Description*> nested;
  for (const Description& one : description.nested) {
    nested.push_back(&one);
  }
  std::ranges::sort(nested, {}, &Description::name);
  std::string text = R"({"type_description": )";
  appendHashed(text, description);
  text += R"(, "referenced_type_descriptions": [)";
  for (std::size_t i = 0; i < nested.size(); ++i) {
    text += i == 0 ? "" : ", ";
    appendHashed(text, *nested[i]);
  }
  text += "]}";
  return text;
}

} // namespace gk::messages::ros
