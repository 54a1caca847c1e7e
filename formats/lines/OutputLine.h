#pragma once

#include "gk/GKError.h"
#include "gk/GKObserver.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

/// What a run writes: one JSON object a line, for each thing that happens. Every function appends
/// one whole line to `out`; times are microseconds since the start.
namespace gk::formats {

enum class LineKind : std::uint8_t {
  Declare,
  Event,
  Micro,
  Data,
  Order,
  Resource,
  Log,
  Result,
  Error,
  Value,
  Page,
  Sample
};

constexpr std::size_t kLineKinds = 12;

/// The text of the member "kind".
std::string_view lineKindName(LineKind kind);
/// The kind of this name; nothing for what is none.
std::optional<LineKind> findLineKind(std::string_view name);

/// Some kinds of lines.
class LineKinds {
public:
  static LineKinds all();

  /// Reads names with commas between them. Raises `std::invalid_argument` that contains a name that
  /// is no kind.
  static LineKinds parse(std::string_view names);

  bool contains(LineKind kind) const { return fKinds[static_cast<std::size_t>(kind)]; }

private:
  std::bitset<kLineKinds> fKinds;
};

/// The kind of line that `appendNotice` writes.
LineKind lineKindOf(const GK::GKNotice& notice);

/// A notice of the platform. Whether an insertion is to be seen at all is the caller's to decide.
void appendNotice(std::string& out, const GK::GKNotice& notice);

/// A call has returned. `value` is null for a method without result.
void appendResult(std::string& out, GK::GKMicros time, std::string_view call,
                  const GK::GKValue* value);

/// A call has raised an error of the platform.
void appendError(std::string& out, GK::GKMicros time, std::string_view call,
                 const GK::GKError& error);

/// A call has raised an error of another kind.
void appendError(std::string& out, GK::GKMicros time, std::string_view call,
                 std::string_view description);

/// Present value of a key. `value` is null for an unknown key.
void appendValue(std::string& out, GK::GKMicros time, std::string_view key,
                 const GK::GKValue* value);

/// A module's status page.
void appendPage(std::string& out, GK::GKMicros time, std::string_view module,
                std::string_view html);

/// The values of chosen keys after a tick, in the given order.
void appendSample(std::string& out, GK::GKMicros time,
                  std::span<const std::pair<std::string, GK::GKValue>> values);

} // namespace gk::formats
