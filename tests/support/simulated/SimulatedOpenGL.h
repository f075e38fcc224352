#pragma once

#include "platform/NSOpenGLLayer.h"
#include "platform/OpenGL.h"
#include "platform/Synchronised.h"
#include "support/simulated/RecordingGL.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// What was done against the rules of contexts, in words.
using GLViolations = Synchronised<std::vector<std::string>>;

/// A context that watches how it is used: current only under the lock, on one thread, released by the
/// last unlock. It presents a plain picture of its surface's size in the clear colour of that moment.
class SimulatedContext final : public NSOpenGLContext, public CGLContext {
 public:
  SimulatedContext(NSOpenGLPixelFormat format, const NativeWindow* window, const RecordingGL& gl,
                   std::shared_ptr<GLViolations> violations);
  ~SimulatedContext() override;

  // ── Scripts ───────────────────────────────────────────────────────────────────────────────────────
  std::atomic<bool> lost = false;            ///< `cglContextObj` answers null
  std::atomic<bool> busy = false;            ///< it cannot be made current
  std::atomic<bool> refusesWindows = false;  ///< `setDrawable` answers false for a window
  int identity;                              ///< contexts with one number are equal; each starts with its own

  // ── What happened ─────────────────────────────────────────────────────────────────────────────────
  const NSOpenGLPixelFormat format;
  std::vector<std::pair<std::int32_t, std::int32_t>> values;  ///< (value, parameter)
  std::atomic<int> flushes = 0;
  std::atomic<int> presentationsAgain = 0;
  /// The window that the context is tied to; absent off screen.
  [[nodiscard]] std::optional<NativeWindow> drawable() const { return drawable_.copy(); }
  [[nodiscard]] CGSize surfaceSize() const { return surfaceSize_.copy(); }
  [[nodiscard]] bool isLockedByThisThread() const { return owner_ == std::this_thread::get_id(); }

  // NSOpenGLContext, CGLContext
  [[nodiscard]] CGLContextObj cglContextObj() override { return lost ? nullptr : this; }
  bool makeCurrentContext() override;
  void flushBuffer() override;
  void presentAgain() override { presentationsAgain += 1; }
  [[nodiscard]] bool isShown() const override { return true; }
  bool setDrawable(const NativeWindow* window) override;
  void setValues(std::int32_t value, std::int32_t parameter) override {
    values.emplace_back(value, parameter);
  }
  [[nodiscard]] bool isEqual(const NSOpenGLContext& other) const override;
  void setSurfaceSize(CGSize pixels) override {
    surfaceSize_.with([&](CGSize& size) { size = pixels; });
  }
  [[nodiscard]] CGImageRef copyPresentedImage() override { return presented_.copy(); }
  void lock() override;
  void unlock() override;

 private:
  void expectLocked(const char* what) const;

  const RecordingGL& gl_;
  const std::shared_ptr<GLViolations> violations_;
  std::recursive_mutex lock_;
  std::atomic<std::thread::id> owner_;
  int depth_ = 0;
  Synchronised<std::optional<NativeWindow>> drawable_;
  Synchronised<CGSize> surfaceSize_;
  Synchronised<CGImageRef> presented_;
};

/// OpenGL of the scripted machine: layers refresh when the test says so, on the test's thread.
///
///     machine.openGL().refresh();                        // every visible layer, once
///     EXPECT_EQ(machine.openGL().gl.count("glDrawArrays"), 1);
///     EXPECT_THAT(machine.openGL().violations(), IsEmpty());
class SimulatedOpenGL final : public OpenGL {
 public:
  SimulatedOpenGL();

  RecordingGL gl;
  std::atomic<bool> hasDriver = true;  ///< false: `makeContext` answers null

  /// One refresh of each layer that has a driver, on the calling thread.
  void refresh();
  [[nodiscard]] std::size_t liveDrivers() const { return alive(drivers_).size(); }
  /// Of the drivers alive, oldest first.
  [[nodiscard]] std::vector<double> refreshRates() const {
    std::vector<double> rates;
    for (const auto& driven : alive(drivers_)) rates.push_back(driven->rate);
    return rates;
  }
  /// Every context made and still alive, oldest first.
  [[nodiscard]] std::vector<std::shared_ptr<SimulatedContext>> contexts() const { return alive(contexts_); }
  /// Calls without a current context or without its lock, and misuse of contexts.
  [[nodiscard]] std::vector<std::string> violations() const { return violations_->copy(); }

  // OpenGL
  [[nodiscard]] std::shared_ptr<NSOpenGLContext> makeContext(const NSOpenGLPixelFormat& format,
                                                             const NativeWindow* window) override;
  [[nodiscard]] std::unique_ptr<OpenGLLayerDriver> makeLayerDriver(std::weak_ptr<NSOpenGLLayer> layer,
                                                                   double refreshRate) override;
  [[nodiscard]] OpenGLFunctions& functions() override { return gl; }

 private:
  /// The layer that a driver drives; owned by the driver alone.
  struct Driven {
    const std::weak_ptr<NSOpenGLLayer> layer;
    std::atomic<double> rate;
  };
  template <class T>
  using Watched = Synchronised<std::vector<std::weak_ptr<T>>>;
  template <class T>
  static std::vector<std::shared_ptr<T>> alive(const Watched<T>& watched) {
    std::vector<std::shared_ptr<T>> alive;
    for (const auto& each : watched.copy()) {
      if (auto held = each.lock()) alive.push_back(std::move(held));
    }
    return alive;
  }

  std::shared_ptr<GLViolations> violations_ = std::make_shared<GLViolations>();
  Watched<SimulatedContext> contexts_;
  Watched<Driven> drivers_;
};

}  // namespace QelUtilVideo
