#include "platform/linux/egl/LayerDriver.h"

#include "platform/NSOpenGLLayer.h"
#include "platform/ThreadSafety.h"
#include "platform/linux/core/SignalsBlocked.h"

#include <cxxabi.h>
#include <epoxy/egl.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <utility>

namespace QelUtilVideo {

namespace {

/// `CLOCK_MONOTONIC`, as the media clock.
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patienceAtExit{1};

/// Lets drawing end before the process does: libraries that draw are taken apart at exit, and threads
/// that still use them would crash. Never destroyed.
class ExitGate {
 public:
  static ExitGate& instance() {
    static ExitGate* const gate = [] {
      auto made = std::make_unique<ExitGate>();
      made->registerLast();
      return made.release();
    }();
    return *gate;
  }

  /// Has the gate close before anything is taken apart that exists by now. Exit handlers run in the reverse
  /// order of their registration, and drivers make objects with a life till then whenever they first need
  /// them, as when they compile a shader.
  void closeFirst() {
    const MutexLock lock(registration_);
    // Takes the handler out of its place, for which it is called.
    isMoving_ = true;
    abi::__cxa_finalize(this);
    isMoving_ = false;
    registerLast();
  }

  /// Calls `draw` unless the process is ending; false: it is.
  template <class Draw>
  bool pass(Draw&& draw) {
    {
      const MutexLock lock(mutex_);
      if (closed_) return false;
      drawing_ += 1;
    }
    isInside_ = true;
    std::forward<Draw>(draw)();
    isInside_ = false;
    const MutexLock lock(mutex_);
    drawing_ -= 1;
    left_.notify_all();
    return true;
  }

 private:
  void registerLast() {
    const auto handler = [](void* gate) {
      if (!isMoving_) static_cast<ExitGate*>(gate)->close();
    };
    // The gate's address stands for the library that the handler belongs to, of which there is one only.
    abi::__cxa_atexit(handler, this, this);
  }

  void close() {
    // A drawing thread that ends the process itself is not waited for.
    const int staying = isInside_ ? 1 : 0;
    const Clock::time_point end = Clock::now() + patienceAtExit;
    const MutexLock lock(mutex_);
    closed_ = true;
    while (drawing_ != staying && left_.wait_until(mutex_, end)) {
    }
  }

  static thread_local bool isInside_;
  static thread_local bool isMoving_;
  Mutex registration_;
  Mutex mutex_;
  ConditionVariable left_;
  int drawing_ GUARDED_BY(mutex_) = 0;
  bool closed_ GUARDED_BY(mutex_) = false;
};

thread_local bool ExitGate::isInside_ = false;
thread_local bool ExitGate::isMoving_ = false;

Clock::duration periodOf(double refreshRate) {
  constexpr double usual = 60, slowest = 1, fastest = 1000;
  const bool isKnown = std::isfinite(refreshRate) && refreshRate > 0;
  const double rate = isKnown ? std::clamp(refreshRate, slowest, fastest) : usual;
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / rate));
}

double mediaTime(Clock::time_point time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

}  // namespace

/// What the thread and the driver share; the thread may outlive the driver and the layer.
class LayerDriver::Loop {
 public:
  Loop(std::weak_ptr<NSOpenGLLayer> layer, double refreshRate, TroubleHandler trouble)
      : layer_(std::move(layer)), trouble_(std::move(trouble)), period_(periodOf(refreshRate)) {}

  void run() {
    auto due = Clock::now();
    bool goesOn = !isStopped();
    while (goesOn) {
      const double displayTime = mediaTime(due + period());
      // A refresh that throws says nothing about the layer, and the next may fare better.
      const bool open = ExitGate::instance().pass(
          [&] { callSafely(trouble_, "A layer's refresh", [&] { goesOn = refresh(displayTime); }); });
      if (!open) stayUntilTheProcessEnds();
      goesOn = goesOn && waitForNext(due);
    }
    // What EGL keeps for this thread goes now, while the gate is open, and not whenever the thread ends: that
    // may be in the middle of the process's exit, when EGL is being taken apart.
    if (!ExitGate::instance().pass([] { eglReleaseThread(); })) stayUntilTheProcessEnds();
  }

  void setRefreshRate(double perSecond) {
    const MutexLock lock(mutex_);
    period_ = periodOf(perSecond);
    wake_.notify_all();
  }

  void stop() {
    const MutexLock lock(mutex_);
    stopped_ = true;
    wake_.notify_all();
  }

 private:
  [[noreturn]] static void stayUntilTheProcessEnds() {
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
  }

  bool isStopped() {
    const MutexLock lock(mutex_);
    return stopped_;
  }

  Clock::duration period() {
    const MutexLock lock(mutex_);
    return period_;
  }

  /// Waits for the refresh after `due`, less those that are past already, and says in `due` when it is; a
  /// change of the rate counts at once. False: stopped.
  bool waitForNext(Clock::time_point& due) {
    const MutexLock lock(mutex_);
    while (!stopped_) {
      const Clock::duration period = period_;
      const Clock::time_point next = due + ((Clock::now() - due) / period + 1) * period;
      bool isAwaited = true;
      while (isAwaited && !stopped_ && period_ == period) isAwaited = wake_.wait_until(mutex_, next);
      if (stopped_ || period_ != period) continue;
      due = next;
      return true;
    }
    return false;
  }

  /// False: the layer is gone. It may go in here, and with it the driver.
  bool refresh(double displayTime) {
    const auto layer = layer_.lock();
    if (layer && layer->refresh(displayTime)) ExitGate::instance().closeFirst();
    return layer != nullptr;
  }

  const std::weak_ptr<NSOpenGLLayer> layer_;
  const TroubleHandler trouble_;
  Mutex mutex_;
  ConditionVariable wake_;
  Clock::duration period_ GUARDED_BY(mutex_);
  bool stopped_ GUARDED_BY(mutex_) = false;
};

std::unique_ptr<LayerDriver> LayerDriver::make(std::weak_ptr<NSOpenGLLayer> layer, double refreshRate,
                                               const TroubleHandler& trouble) {
  ExitGate::instance();
  auto loop = std::make_shared<Loop>(std::move(layer), refreshRate, trouble);
  try {
    const SignalsBlocked blocked;
    std::thread thread([loop] {
      pthread_setname_np(pthread_self(), "qel-gl-layer");
      loop->run();
    });
    thread.detach();
  } catch (const std::system_error& error) {
    if (trouble) trouble(std::string("No thread for drawing a layer: ") + error.what());
    return nullptr;
  }
  return std::unique_ptr<LayerDriver>(new LayerDriver(std::move(loop)));
}

LayerDriver::LayerDriver(std::shared_ptr<Loop> loop) : loop_(std::move(loop)) {}

LayerDriver::~LayerDriver() { loop_->stop(); }

void LayerDriver::setRefreshRate(double perSecond) { loop_->setRefreshRate(perSecond); }

}  // namespace QelUtilVideo
