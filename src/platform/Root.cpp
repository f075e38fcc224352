#include "platform/Root.h"

#include "platform/SystemLog.h"

#include <atomic>
#include <utility>

namespace QelUtilVideo {
namespace {

constinit Mutex makingMutex;
// Owned, but never destroyed: threads of the library may outlive `main`.
constinit std::atomic<Root*> rootInForce{nullptr};

}  // namespace

Root::Root(std::unique_ptr<Platform> platform) : platform_(std::move(platform)) {}

Root::~Root() {
  while (!made_.empty()) {
    const std::shared_ptr<void> object = std::move(made_.back()->object);
    made_.pop_back();
  }
}

Root& Root::current() {
  if (Root* root = rootInForce.load(std::memory_order_acquire)) return *root;
  const MutexLock lock(makingMutex);
  if (Root* root = rootInForce.load(std::memory_order_acquire)) return *root;
  auto made = std::make_unique<Root>(makePlatform());
  rootInForce.store(made.get(), std::memory_order_release);
  return *made.release();
}

std::unique_ptr<Root> Root::replace(std::unique_ptr<Root> root) {
  const MutexLock lock(makingMutex);
  return std::unique_ptr<Root>(rootInForce.exchange(root.release(), std::memory_order_acq_rel));
}

Root::Slot& Root::slotFor(std::type_index type) {
  const MutexLock lock(mutex_);
  std::unique_ptr<Slot>& slot = slots_[type];
  if (!slot) slot = std::make_unique<Slot>();
  return *slot;
}

void Root::rememberMade(Slot& slot) {
  const MutexLock lock(mutex_);
  made_.push_back(&slot);
}

void platformTrouble(Platform& platform, const std::string& text) {
  try {
    platform.systemLog()
        .makeLog(systemLogSubsystem, "platform")
        ->os_log(os_log_type_t::OS_LOG_TYPE_ERROR, text);
  } catch (...) {
    // Nobody is left to tell.
  }
}

}  // namespace QelUtilVideo
