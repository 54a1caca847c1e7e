#include "gk/GKWriteGate.h"

#include "gk/GKError.h"

#include <utility>

namespace GK {

GKWriteGate::~GKWriteGate() = default;

const GKValue& GKWriteGate::ask(const std::shared_ptr<GKWriteGate>& gate, const char* service,
                                const char* method, const GKWrite& write, GKValue& room) {
  if (gate != nullptr) {
    Verdict verdict = gate->admit(write);
    if (!verdict.refusal.empty()) {
      throw GKError(service, method, verdict.refusal);
    }
    if (verdict.value) {
      room = *std::move(verdict.value);
      return room;
    }
  }
  return write.value != nullptr ? *write.value : room;
}

} // namespace GK
