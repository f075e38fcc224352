#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <functional>

namespace QelUtilVideo {

/// The process's main queue: captures of displays and windows, view work and the notifications about
/// displays run here. A host gives it time in one of two ways:
///
///     MainLoop::main().run();                        // until stop()
///
/// or, from an event loop of its own on the same thread:
///
///     watch(MainLoop::main().fileDescriptor());      // readable: there is work
///     MainLoop::main().dispatchPending();            // does it, never blocks
///
/// The main thread is the process's initial thread unless the host binds another one first. A host
/// that gives it no time gets no captures; nothing piles up meanwhile.
class QEL_EXPORT MainLoop {
 public:
  virtual ~MainLoop() = default;

  static MainLoop& main();

  /// Makes the calling thread the main thread. Only before the library was used in any other way;
  /// later calls do nothing and answer false.
  virtual bool bindToCurrentThread() = 0;
  /// Whether the calling thread is the main thread. Any thread.
  [[nodiscard]] virtual bool isMainThread() const = 0;

  /// Runs blocks, timers and event sources until `stop`. Main thread only; elsewhere it returns at
  /// once. A nested call is allowed; each `stop` ends the innermost one.
  virtual void run() = 0;
  /// Makes `run` return once the block now running has ended. A stop with no run under way ends the
  /// next run at once. Any thread.
  virtual void stop() = 0;

  /// A descriptor (owned by the loop, never to be read, written or closed) that polls readable while
  /// there is work to do; -1 when the system had none left for it.
  [[nodiscard]] virtual int fileDescriptor() const = 0;
  /// Does the work that is ready and returns. Main thread only; elsewhere it does nothing.
  virtual void dispatchPending() = 0;

  /// Runs `block` on the main thread, after everything that was queued before. Any thread.
  /// A block that throws is reported to the system log.
  virtual void async(std::function<void()> block) = 0;
  /// Runs `block` once on the main thread, `seconds` from now (negative or not a number: now).
  /// Any thread.
  virtual void after(double seconds, std::function<void()> block) = 0;

 protected:
  MainLoop() = default;
};

}  // namespace QelUtilVideo
