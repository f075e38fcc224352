#include "platform/linux/core/SerialQueue.h"

#include "platform/ThreadSafety.h"

#include <atomic>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace QelUtilVideo {

/// Blocks that wait, in order. One thread at a time holds the queue: a worker that runs blocks, or a
/// caller of `sync` whose turn has come; each hands the queue on to whoever is next. Work under way
/// keeps it alive.
class SerialQueue::State : public std::enable_shared_from_this<State> {
 public:
  State(std::string label, std::shared_ptr<WorkerPool> pool, TroubleHandler trouble,
        Dispatch::DeadlockHandler deadlocked)
      : label_(std::move(label)),
        pool_(std::move(pool)),
        trouble_(std::move(trouble)),
        deadlocked_(std::move(deadlocked)) {}

  [[nodiscard]] const std::string& label() const { return label_; }

  void async(Block block) {
    {
      const MutexLock lock(mutex_);
      waiting_.push_back({std::move(block), nullptr});
      if (std::exchange(held_, true)) return;
    }
    submitDrain();
  }

  void sync(const Block& block) {
    if (owner_ == std::this_thread::get_id()) {
      deadlocked_(label_);
      return block();
    }
    waitForTurn();
    const Turn turn(*this);
    block();
  }

 private:
  /// A caller of `sync`, on its own stack; touched under the queue's lock.
  struct Caller {
    ConditionVariable called;
    bool hasTurn = false;
  };
  struct Entry {
    Block block;
    Caller* caller;  ///< not null: it is this caller's turn
  };
  class Turn {
   public:
    explicit Turn(State& state) : state_(state) { state_.owner_ = std::this_thread::get_id(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() {
      state_.owner_ = std::thread::id();
      state_.handOn();
    }

   private:
    State& state_;
  };

  void waitForTurn() {
    const MutexLock lock(mutex_);
    if (!std::exchange(held_, true)) return;
    Caller caller;
    waiting_.push_back({nullptr, &caller});
    while (!caller.hasTurn) caller.called.wait(mutex_);
  }

  void submitDrain() {
    pool_->submit([self = shared_from_this()] { self->drain(); });
  }

  /// Runs blocks until none is left or a caller's turn comes.
  void drain() {
    for (;;) {
      Block block;
      {
        const MutexLock lock(mutex_);
        if (waiting_.empty()) {
          held_ = false;
          return;
        }
        if (waiting_.front().caller) return callNext();
        block = std::move(waiting_.front().block);
        waiting_.pop_front();
      }
      owner_ = std::this_thread::get_id();
      callSafely(trouble_, "A block on " + label_, block);
      block = nullptr;
      owner_ = std::thread::id();
    }
  }

  void handOn() {
    {
      const MutexLock lock(mutex_);
      if (waiting_.empty()) {
        held_ = false;
        return;
      }
      if (waiting_.front().caller) return callNext();
    }
    submitDrain();
  }

  /// Once the lock is released, the caller may be gone.
  void callNext() REQUIRES(mutex_) {
    Caller& caller = *waiting_.front().caller;
    waiting_.pop_front();
    caller.hasTurn = true;
    caller.called.notify_one();
  }

  const std::string label_;
  const std::shared_ptr<WorkerPool> pool_;
  const TroubleHandler trouble_;
  const Dispatch::DeadlockHandler deadlocked_;
  std::atomic<std::thread::id> owner_{};  ///< whose block runs now
  Mutex mutex_;
  std::deque<Entry> waiting_ GUARDED_BY(mutex_);
  bool held_ GUARDED_BY(mutex_) = false;
};

SerialQueue::SerialQueue(std::string label, std::shared_ptr<WorkerPool> pool, TroubleHandler trouble,
                         Dispatch::DeadlockHandler deadlocked)
    : state_(std::make_shared<State>(std::move(label), std::move(pool), std::move(trouble),
                                     std::move(deadlocked))) {}

SerialQueue::~SerialQueue() = default;

const std::string& SerialQueue::label() const { return state_->label(); }
void SerialQueue::async(Block block) { state_->async(std::move(block)); }

void SerialQueue::sync(const Block& block) {
  // The block may drop the last reference to this queue.
  const auto state = state_;
  state->sync(block);
}

}  // namespace QelUtilVideo
