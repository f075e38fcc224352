#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace QelUtilVideo {

class MainLoop;

/// Runs blocks one after another, in the order in which they were queued. Any thread. A queue may be
/// dropped on any thread, from one of its own blocks too; blocks already queued still run.
class DispatchQueue {
 public:
  using Block = std::function<void()>;
  virtual ~DispatchQueue() = default;

  [[nodiscard]] virtual const std::string& label() const = 0;
  /// Queues the block and returns. A block that throws is reported to the system log.
  virtual void async(Block block) = 0;
  /// Runs the block after everything queued before it, exclusively, and returns when it has ended; an
  /// exception of the block comes back to the caller. Called from a block of the same queue (which
  /// could never end), it calls the deadlock handler and runs the block at once.
  virtual void sync(const Block& block) = 0;
};

/// Fires repeatedly on a queue. Firings that were missed because the queue was busy, or got no time,
/// become one. After `cancel` has returned nothing fires any more; but a firing that was already waiting
/// for its turn on the queue still calls the handler, once, so the handler must hold its object weakly.
/// Any thread.
class DispatchTimerSource {
 public:
  virtual ~DispatchTimerSource() = default;  ///< cancels
  virtual void setEventHandler(std::function<void()> handler) = 0;
  /// First firing now, then every `interval` seconds, each at most `leeway` seconds late by choice.
  virtual void schedule(double interval, double leeway) = 0;
  /// Begins firing; a new source is suspended.
  virtual void resume() = 0;
  virtual void cancel() = 0;
};

/// Adds up numbers and hands the sum to its handler on a queue; additions made while the handler waits
/// for its turn merge. Any thread.
class DispatchDataAddSource {
 public:
  virtual ~DispatchDataAddSource() = default;  ///< cancels
  virtual void setEventHandler(std::function<void(std::uint64_t sum)> handler) = 0;
  virtual void resume() = 0;
  virtual void add(std::uint64_t value) = 0;
  virtual void cancel() = 0;
};

/// Queues and sources. Any thread.
class Dispatch {
 public:
  /// Told the label of a queue that was asked to wait for itself.
  using DeadlockHandler = std::function<void(const std::string& label)>;

  virtual ~Dispatch() = default;
  /// The main loop; its queue is `mainQueue`.
  [[nodiscard]] virtual MainLoop& mainLoop() = 0;
  [[nodiscard]] virtual std::shared_ptr<DispatchQueue> mainQueue() = 0;
  [[nodiscard]] virtual std::shared_ptr<DispatchQueue> makeQueue(std::string label) = 0;
  [[nodiscard]] virtual std::unique_ptr<DispatchTimerSource> makeTimerSource(
      const std::shared_ptr<DispatchQueue>& queue) = 0;
  [[nodiscard]] virtual std::unique_ptr<DispatchDataAddSource> makeDataAddSource(
      const std::shared_ptr<DispatchQueue>& queue) = 0;
  virtual void setDeadlockHandler(DeadlockHandler handler) = 0;
};

}  // namespace QelUtilVideo
