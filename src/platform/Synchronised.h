#pragma once

#include "platform/ThreadSafety.h"

#include <utility>

namespace QelUtilVideo {

/// A value and the mutex that guards it, as one object: unlocked access does not compile.
///
///     Synchronised<State> state_;
///     state_.with([](State& state) { state.count += 1; });
///
/// The function runs under the lock: it must not call out of the class.
template <class T>
class Synchronised {
 public:
  Synchronised() = default;
  explicit Synchronised(T value) : value_(std::move(value)) {}

  template <class F>
  decltype(auto) with(F&& function) {
    const MutexLock lock(mutex_);
    return std::forward<F>(function)(value_);
  }
  template <class F>
  decltype(auto) with(F&& function) const {
    const MutexLock lock(mutex_);
    return std::forward<F>(function)(value_);
  }
  /// A copy of the whole value.
  [[nodiscard]] T copy() const {
    const MutexLock lock(mutex_);
    return value_;
  }

 private:
  mutable Mutex mutex_;
  T value_ GUARDED_BY(mutex_){};
};

}  // namespace QelUtilVideo
