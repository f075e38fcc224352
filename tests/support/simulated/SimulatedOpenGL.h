#pragma once

#include "platform/NSOpenGLLayer.h"
#include "platform/OpenGL.h"
#include "support/simulated/RecordingGL.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// What was done against the rules of contexts, in words. Any thread.
class GLViolations {
 public:
  void add(std::string text);
  [[nodiscard]] std::vector<std::string> list() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> list_;
};

/// A context that watches how it is used: current only under the lock, on one thread, released by the
/// last unlock. It presents a plain picture of its surface's size in the clear colour of that moment.
class SimulatedContext final : public NSOpenGLContext, public CGLContext {
 public:
  SimulatedContext(NSOpenGLPixelFormat format, const RecordingGL& gl,
                   std::shared_ptr<GLViolations> violations);
  ~SimulatedContext() override;

  // ── Scripts ─────────────────────────────────────────────────────────────────────────────────────
  std::atomic<bool> lost = false;  ///< `cglContextObj` answers null
  int identity;                    ///< contexts with one number are equal; each starts with its own

  // ── What happened ───────────────────────────────────────────────────────────────────────────────
  const NSOpenGLPixelFormat format;
  std::vector<std::pair<std::int32_t, std::int32_t>> values;  ///< (value, parameter)
  std::atomic<int> flushes = 0;
  std::atomic<int> locks = 0;
  [[nodiscard]] CGSize surfaceSize() const;
  [[nodiscard]] bool isLockedByThisThread() const { return owner_ == std::this_thread::get_id(); }
  /// The context that is current on the calling thread, or null.
  [[nodiscard]] static SimulatedContext* current();

  // NSOpenGLContext, CGLContext
  [[nodiscard]] CGLContextObj cglContextObj() override;
  void makeCurrentContext() override;
  void flushBuffer() override;
  void setValues(std::int32_t value, std::int32_t parameter) override;
  [[nodiscard]] bool isEqual(const NSOpenGLContext& other) const override;
  void setSurfaceSize(CGSize pixels) override;
  [[nodiscard]] CGImageRef copyPresentedImage() override;
  void lock() override;
  void unlock() override;

 private:
  const RecordingGL& gl_;
  const std::shared_ptr<GLViolations> violations_;
  std::recursive_mutex lock_;
  std::atomic<std::thread::id> owner_;
  int depth_ = 0;
  mutable std::mutex stateMutex_;
  CGSize surfaceSize_;
  CGImageRef presented_;
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
  void refresh(double displayTime = 0);
  [[nodiscard]] std::size_t liveDrivers() const;
  /// Every context made and still alive, oldest first.
  [[nodiscard]] std::vector<std::shared_ptr<SimulatedContext>> contexts() const;
  [[nodiscard]] int contextsMade() const { return contextsMade_; }
  /// Calls without a current context or without its lock, and misuse of contexts.
  [[nodiscard]] std::vector<std::string> violations() const { return violations_->list(); }

  // OpenGL
  [[nodiscard]] std::shared_ptr<NSOpenGLContext> makeContext(const NSOpenGLPixelFormat& format) override;
  [[nodiscard]] std::unique_ptr<OpenGLLayerDriver> makeLayerDriver(
      std::weak_ptr<NSOpenGLLayer> layer) override;
  [[nodiscard]] OpenGLFunctions& functions() override { return gl; }

 private:
  std::shared_ptr<GLViolations> violations_ = std::make_shared<GLViolations>();
  std::atomic<int> contextsMade_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::weak_ptr<SimulatedContext>> contexts_;
  /// One per driver; a driver's end is its entry's.
  std::vector<std::weak_ptr<std::weak_ptr<NSOpenGLLayer>>> driven_;
};

}  // namespace QelUtilVideo
