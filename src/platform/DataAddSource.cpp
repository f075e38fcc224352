#include "platform/DataAddSource.h"

#include "platform/Synchronised.h"

#include <utility>

namespace QelUtilVideo {
namespace {

using Handler = std::function<void(std::uint64_t)>;

/// What the source and its deliveries under way share.
class Merger : public std::enable_shared_from_this<Merger> {
 public:
  explicit Merger(std::shared_ptr<DispatchQueue> queue) : queue_(std::move(queue)) {}

  void setHandler(Handler handler) {
    auto shared = std::make_shared<const Handler>(std::move(handler));
    state_.with([&](State& state) { std::swap(state.handler, shared); });
  }
  void resume() {
    change([](State& state) { state.suspended = false; });
  }
  void add(std::uint64_t value) {
    change([&](State& state) { state.sum += value; });
  }
  void cancel() {
    std::shared_ptr<const Handler> released;
    state_.with([&](State& state) {
      state.cancelled = true;
      std::swap(state.handler, released);
    });
  }

 private:
  struct State {
    bool suspended = true;
    bool cancelled = false;
    bool queued = false;  ///< a delivery waits for its turn
    std::uint64_t sum = 0;
    std::shared_ptr<const Handler> handler;
  };

  template <class Change>
  void change(Change apply) {
    const bool mustQueue = state_.with([&](State& state) {
      apply(state);
      if (state.suspended || state.cancelled || state.queued || state.sum == 0) return false;
      state.queued = true;
      return true;
    });
    if (mustQueue) queue_->async([self = shared_from_this()] { self->deliver(); });
  }

  void deliver() {
    std::shared_ptr<const Handler> handler;
    const std::uint64_t sum = state_.with([&](State& state) {
      state.queued = false;
      if (!state.cancelled) handler = state.handler;
      return std::exchange(state.sum, 0);
    });
    if (handler && *handler) (*handler)(sum);
  }

  std::shared_ptr<DispatchQueue> queue_;
  Synchronised<State> state_;
};

class DataAddSource final : public DispatchDataAddSource {
 public:
  explicit DataAddSource(std::shared_ptr<DispatchQueue> queue)
      : merger_(std::make_shared<Merger>(std::move(queue))) {}
  ~DataAddSource() override { merger_->cancel(); }

  void setEventHandler(Handler handler) override { merger_->setHandler(std::move(handler)); }
  void resume() override { merger_->resume(); }
  void add(std::uint64_t value) override { merger_->add(value); }
  void cancel() override { merger_->cancel(); }

 private:
  std::shared_ptr<Merger> merger_;
};

}  // namespace

std::unique_ptr<DispatchDataAddSource> makeDataAddSourceOn(const std::shared_ptr<DispatchQueue>& queue) {
  return std::make_unique<DataAddSource>(queue);
}

}  // namespace QelUtilVideo
