#pragma once

#include "formats/lines/Action.h"
#include "gk/GKBroker.h"
#include "runtime/output/Reporter.h"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace gk::runtime {

/// The remote calls of a scenario, each in a task of its own.
class Calls {
public:
  /// Takes the answers; called in the task of the call.
  using Receiver = std::function<void(Answer)>;

  /// `receive` must stay valid until all tasks have ended.
  Calls(boost::shared_ptr<GK::GKBroker> broker, Receiver receive);

  /// `number` comes back in the answer.
  void start(const formats::CallAction& call, std::uint64_t number);
  /// Calls on this thread, and tells nobody what came of it.
  void callNow(const formats::CallAction& call) const;
  /// Asks for a module's status page.
  void startPage(const std::string& module);

  /// Calls that have not returned. One that has become a module's loop does not count.
  std::size_t pending() const noexcept { return fPending.load(std::memory_order_relaxed); }

  /// From now on calls that return write nothing.
  void abandon() noexcept { fIsAbandoned.store(true, std::memory_order_relaxed); }

  /// To be told of each end of a tick, in the loop's task: recognises calls that became loops.
  void onTick() noexcept;

private:
  using Work = std::function<Answer(GK::GKModuleCore&)>;

  void xStart(const std::string& module, const std::string& method, const std::string& label,
              std::uint64_t number, Work work);
  Answer xAnswer(const std::string& module, const Work& work) const;

  boost::shared_ptr<GK::GKBroker> fBroker;
  Receiver fReceive;
  std::atomic<std::size_t> fPending{0};
  std::atomic<bool> fIsAbandoned{false};
};

} // namespace gk::runtime
