#include "runtime/host/Calls.h"

#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "gk/GKModule.h"

#include <exception>
#include <utility>

namespace gk::runtime {

namespace {

constexpr const char* kPageMethod = "httpGet";

/// The call that runs on this thread has not returned and is being waited for.
thread_local bool tIsPendingCall = false;

Answer answerOf(const formats::CallAction& call, GK::GKModuleCore& module) {
  Answer answer;
  const GK::GKCallerScope scope(GK::GKCaller::Client);
  answer.value = module.callMethod(call.method, call.args);
  answer.hasValue = !module.findMethod(call.method, call.args.size())->result.type.empty();
  return answer;
}

} // namespace

Calls::Calls(boost::shared_ptr<GK::GKBroker> broker, Receiver receive)
    : fBroker(std::move(broker)), fReceive(std::move(receive)) {}

void Calls::start(const formats::CallAction& call, std::uint64_t number) {
  xStart(call.module, call.method, call.label, number,
         [call](GK::GKModuleCore& module) { return answerOf(call, module); });
}

void Calls::callNow(const formats::CallAction& call) const {
  xAnswer(call.module, [&call](GK::GKModuleCore& module) { return answerOf(call, module); });
}

void Calls::startPage(const std::string& module) {
  const auto work = [](GK::GKModuleCore& core) {
    Answer answer;
    answer.kind = Answer::Kind::Page;
    answer.name = core.getName();
    const GK::GKCallerScope scope(GK::GKCaller::Client);
    if (auto* full = dynamic_cast<GK::GKModule*>(&core)) {
      answer.text = full->httpGet();
    }
    return answer;
  };
  xStart(module, kPageMethod, module + "." + kPageMethod, 0, work);
}

void Calls::xStart(const std::string& module, const std::string& method, const std::string& label,
                   std::uint64_t number, Work work) {
  fPending.fetch_add(1, std::memory_order_relaxed);
  GK::GKClock::instance().start({module, method},
                                [this, module, label, number, work = std::move(work)] {
                                  tIsPendingCall = true;
                                  Answer answer = xAnswer(module, work);
                                  answer.number = number;
                                  answer.time = GK::GKClock::instance().elapsed();
                                  if (answer.name.empty()) {
                                    answer.name = label;
                                  }
                                  if (!fIsAbandoned.load(std::memory_order_relaxed)) {
                                    fReceive(std::move(answer));
                                  }
                                  if (std::exchange(tIsPendingCall, false)) {
                                    fPending.fetch_sub(1, std::memory_order_relaxed);
                                  }
                                });
}

Answer Calls::xAnswer(const std::string& module, const Work& work) const {
  Answer answer;
  try {
    const boost::shared_ptr<GK::GKModuleCore> target = fBroker->findModule(module);
    if (target == nullptr) {
      throw GK::GKError("GKBroker", "getProxy", "there is no module " + module);
    }
    return work(*target);
  } catch (const GK::GKError& error) {
    answer.kind = Answer::Kind::Error;
    answer.error = std::make_unique<GK::GKError>(error);
  } catch (const std::exception& error) {
    answer.kind = Answer::Kind::OtherError;
    answer.text = error.what();
  } catch (...) {
    answer.kind = Answer::Kind::OtherError;
    answer.text = "unknown exception";
  }
  return answer;
}

void Calls::onTick() noexcept {
  if (std::exchange(tIsPendingCall, false)) {
    fPending.fetch_sub(1, std::memory_order_relaxed);
  }
}

} // namespace gk::runtime
