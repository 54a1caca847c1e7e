#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Which memory keys are told together, and under which names. This is the one place that says so;
/// what the device layer provides is taken from its table of keys.
namespace gk::messages {

/// One member of a subject's messages.
struct SubjectField {
  enum class Shape : unsigned char { Number, Integer, Boolean, Text };

  /// With its unit at the end where it has one: "left_m", "HeadYaw_degC".
  std::string name;
  /// The memory key that holds the value.
  std::string key;
  Shape shape = Shape::Number;
  std::string meaning;
};

/// Things that belong together and are sampled together.
struct Subject {
  std::string topic;
  std::string schemaName;
  std::string title;
  /// Sorted as they are sent.
  std::vector<SubjectField> fields;
};

/// All subjects. Never changes; from any thread.
const std::vector<Subject>& subjects();

/// The joints whose positions are known, as fields named like the joints, in radians. Never
/// changes; from any thread.
const std::vector<SubjectField>& jointPositions();

} // namespace gk::messages
