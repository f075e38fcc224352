#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// What clang's thread-safety analysis is told about locks; the preset `clang-threads` makes its findings
// errors. Other compilers see nothing of it.
#ifdef __clang__
#define QEL_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define QEL_THREAD_ATTRIBUTE(attribute)
#endif

/// On a class: its objects are locks.
#define CAPABILITY(name) QEL_THREAD_ATTRIBUTE(capability(name))
/// On a class: its objects hold a lock while they live.
#define SCOPED_CAPABILITY QEL_THREAD_ATTRIBUTE(scoped_lockable)
/// On a member: it is touched only while that lock is held.
#define GUARDED_BY(lock) QEL_THREAD_ATTRIBUTE(guarded_by(lock))
/// On a function: its caller holds the lock.
#define REQUIRES(...) QEL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
/// On a function: its caller does not hold the lock.
#define EXCLUDES(...) QEL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
/// On a function: it takes the lock and keeps it, or gives it up.
#define ACQUIRE(...) QEL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) QEL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
/// On a function that the analysis cannot follow; say why.
#define NO_THREAD_SAFETY_ANALYSIS QEL_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace QelUtilVideo {

class ConditionVariable;

/// A `std::mutex` that the analysis knows.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend ConditionVariable;
  std::mutex mutex_;
};

/// A `std::recursive_mutex` that the analysis knows; where one function takes it twice, it objects.
class CAPABILITY("mutex") RecursiveMutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

/// Holds a mutex while it lives.
template <class Lockable = Mutex>
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Lockable& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() RELEASE() { mutex_.unlock(); }

 private:
  Lockable& mutex_;
};

/// Gives up a mutex that its maker holds, and takes it again at the end of its life.
template <class Lockable = Mutex>
class SCOPED_CAPABILITY MutexUnlock {
 public:
  explicit MutexUnlock(Lockable& mutex) RELEASE(mutex) : mutex_(mutex) { mutex_.unlock(); }
  MutexUnlock(const MutexUnlock&) = delete;
  MutexUnlock& operator=(const MutexUnlock&) = delete;
  ~MutexUnlock() RELEASE() { mutex_.lock(); }  // of the scope, that is: what it gave up is back

 private:
  Lockable& mutex_;
};

/// A `std::condition_variable` for `Mutex`, which the waiting thread holds. Waiting may end without cause:
///
///     while (!ready_) changed_.wait(mutex_);
class ConditionVariable {
 public:
  void notify_one() { condition_.notify_one(); }
  void notify_all() { condition_.notify_all(); }

  void wait(Mutex& mutex) REQUIRES(mutex) {
    Held held(mutex);
    condition_.wait(held.lock);
  }
  /// False: the time has come.
  template <class Clock, class Duration>
  bool wait_until(Mutex& mutex, std::chrono::time_point<Clock, Duration> time) REQUIRES(mutex) {
    Held held(mutex);
    return condition_.wait_until(held.lock, time) == std::cv_status::no_timeout;
  }

 private:
  /// The mutex in the form in which the standard library takes it, locked before and after.
  struct Held {
    explicit Held(Mutex& mutex) : lock(mutex.mutex_, std::adopt_lock) {}
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    ~Held() { static_cast<void>(lock.release()); }
    std::unique_lock<std::mutex> lock;
  };
  std::condition_variable condition_;
};

}  // namespace QelUtilVideo
