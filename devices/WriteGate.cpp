#include "devices/WriteGate.h"

#include "gk/DCM.h"
#include "gk/GKMemory.h"
#include "gk/GKResourceManager.h"
#include "messages/json/JsonText.h"
#include "messages/keys/DeviceKeys.h"

#include <algorithm>
#include <utility>

namespace gk::devices {

namespace {

using GK::GKWrite;

/// What a number counts for, bytes.
constexpr std::size_t kNumberSize = 4;

constexpr const char* kServices[] = {GK::GKMemory::kName, GK::DCM::kName,
                                     GK::GKResourceManager::kName};

std::size_t sizeOf(const GK::GKValue& value) {
  if (value.type() == GK::GKValue::Type::String) {
    return value.toString().size();
  }
  std::size_t size = kNumberSize;
  if (value.type() == GK::GKValue::Type::Array) {
    for (const GK::GKValue& element : value.toArray()) {
      size += sizeOf(element);
    }
  }
  return size;
}

/// Whether a value is stored under the name as it is.
bool isStored(const GKWrite& write) {
  return write.kind == GKWrite::Kind::Data || write.kind == GKWrite::Kind::Event ||
         write.kind == GKWrite::Kind::Order;
}

std::string refuseName(std::string_view name, std::size_t limit) {
  return !name.empty() && name.size() <= limit
             ? std::string()
             : messages::quotedText(name) + ": a name has 1 to " + std::to_string(limit) +
                   " bytes, not " + std::to_string(name.size());
}

} // namespace

WriteGate::WriteGate(const ClientLimits& limits, World world)
    : fLimits(limits), fWorld(std::move(world)) {}

GK::GKWriteGate::Verdict WriteGate::admit(const GKWrite& write) {
  Verdict verdict;
  if (write.caller != GK::GKCaller::Module) {
    verdict.refusal = xRefuse(write, verdict);
  }
  if (fWorld && verdict.refusal.empty() && isStored(write) &&
      write.name.starts_with(messages::kWorldPrefix)) {
    verdict.refusal = fWorld(write.name, verdict.value ? *verdict.value : *write.value);
  }
  if (write.isNew && verdict.refusal.empty()) {
    verdict.refusal = xCount(write);
  }
  return verdict;
}

std::string WriteGate::xRefuse(const GKWrite& write, Verdict& verdict) {
  if (std::string refusal = refuseName(write.name, fLimits.names); !refusal.empty()) {
    return refusal;
  }
  if (write.other.size() > fLimits.names) {
    return refuseName(write.other, fLimits.names);
  }
  if (write.kind == GKWrite::Kind::Subscription &&
      std::ranges::find(kServices, write.other) != std::end(kServices)) {
    return std::string(write.other) + " is a service of the host: only modules can have events "
                                      "handed to it";
  }
  if (write.value == nullptr) {
    return {};
  }
  if (const std::size_t size = sizeOf(*write.value); size > fLimits.values) {
    return write.name + ": a value has at most " + std::to_string(fLimits.values) + " bytes, not " +
           std::to_string(size);
  }
  if (isStored(write)) {
    try {
      GK::GKValue value = messages::valueForKey(messages::keyTypeOf(write.name), *write.value);
      if (value.type() != write.value->type()) {
        verdict.value = std::move(value);
      }
    } catch (const messages::FormatError& error) {
      return write.name + ": " + error.what();
    }
  }
  return {};
}

std::string WriteGate::xCount(const GKWrite& write) {
  const bool isKey = write.value != nullptr && write.kind != GKWrite::Kind::Event;
  std::set<std::string>& known = isKey ? fKeys : fEvents;
  const std::size_t limit = isKey ? fLimits.keys : fLimits.events;
  const std::lock_guard lock(fMutex);
  if (known.contains(write.name)) {
    return {};
  }
  if (known.size() >= limit) {
    const char* const what = isKey ? "keys" : "events";
    return write.name + ": clients have made " + std::to_string(limit) + " " + what +
           ", and may make no more (--limit " + what + "=N)";
  }
  known.insert(write.name);
  return {};
}

} // namespace gk::devices
