#pragma once

#include "platform/Platform.h"
#include "platform/ThreadSafety.h"

#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

namespace QelUtilVideo {

/// What there is once per process: the machine, and one object of each class that a module keeps for
/// the whole process. Made on first use, never destroyed, replaceable by a test. Any thread.
class Root {
 public:
  explicit Root(std::unique_ptr<Platform> platform);
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;
  ~Root();

  /// The root in force.
  static Root& current();
  /// Puts another root in force and returns the one before (null: none had been made). Only while
  /// nothing else uses the library; what was made from a root goes before it does.
  static std::unique_ptr<Root> replace(std::unique_ptr<Root> root);

  [[nodiscard]] Platform& platform() { return *platform_; }

  /// The root's one `T`, made as `T(Root&)` by the first call that needs it. The constructor may ask
  /// for objects of other classes; asking for the one that it makes, be it through a log sink, waits for
  /// ever.
  template <class T>
  [[nodiscard]] T& get() {
    Slot& slot = slotFor(typeid(T));
    std::call_once(slot.once, [&] {
      slot.object = std::make_shared<T>(*this);
      rememberMade(slot);
    });
    return *static_cast<T*>(slot.object.get());
  }

 private:
  /// No lock is held while the object is made; only callers that need the same object wait for it.
  struct Slot {
    std::once_flag once;
    std::shared_ptr<void> object;
  };
  Slot& slotFor(std::type_index type);
  void rememberMade(Slot& slot);

  std::unique_ptr<Platform> platform_;
  Mutex mutex_;
  std::unordered_map<std::type_index, std::unique_ptr<Slot>> slots_ GUARDED_BY(mutex_);
  /// In the order in which their objects were made; they go in the reverse one.
  std::vector<Slot*> made_ GUARDED_BY(mutex_);
};

/// Writes a record of the platform layer's own troubles to the system log, category "platform"; never
/// to the log facility. Any thread.
void platformTrouble(Platform& platform, const std::string& text);

}  // namespace QelUtilVideo
