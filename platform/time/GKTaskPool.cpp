#include "platform/time/GKTaskPool.h"

namespace GK {

namespace {

thread_local const GKTask* tCurrentTask = nullptr;
thread_local GKLoopWake tLoopWake;

} // namespace

const GKTask* GKTask::current() noexcept {
  return tCurrentTask;
}

GKLoopWake& GKLoopWake::current() noexcept {
  return tLoopWake;
}

GKTaskScope::GKTaskScope(const GKTask& task) noexcept {
  tCurrentTask = &task;
  tLoopWake = {};
}
GKTaskScope::~GKTaskScope() {
  tCurrentTask = nullptr;
}

GKTaskPool::~GKTaskPool() {
  {
    const std::lock_guard lock(fMutex);
    fClosing = true;
  }
  fWake.notify_all();
  for (std::thread& thread : fThreads) {
    thread.join();
  }
}

void GKTaskPool::run(std::function<void()> work) {
  {
    const std::lock_guard lock(fMutex);
    fQueue.push_back(std::move(work));
    if (fQueue.size() > fIdle) {
      fThreads.emplace_back([this] { xServe(); });
      return;
    }
  }
  // Without the lock: who wakes takes it first of all.
  fWake.notify_one();
}

void GKTaskPool::xServe() {
  std::unique_lock<std::mutex> lock(fMutex);
  while (true) {
    ++fIdle;
    fWake.wait(lock, [this] { return fClosing || !fQueue.empty(); });
    --fIdle;
    if (fQueue.empty()) {
      return;
    }
    std::function<void()> work = std::move(fQueue.front());
    fQueue.pop_front();
    lock.unlock();
    work();
    work = nullptr;
    lock.lock();
  }
}

} // namespace GK
