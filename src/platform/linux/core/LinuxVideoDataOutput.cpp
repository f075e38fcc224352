#include "platform/linux/core/LinuxVideoDataOutput.h"

#include "platform/Dispatch.h"

#include <utility>

namespace QelUtilVideo {

void LinuxVideoDataOutput::setSampleBufferDelegate(
    std::weak_ptr<AVCaptureVideoDataOutputSampleBufferDelegate> delegate,
    std::shared_ptr<DispatchQueue> queue) {
  state_.with([&](State& state) {
    state.delegate = std::move(delegate);
    state.queue.swap(queue);
  });
}

void LinuxVideoDataOutput::deliver(CMSampleBuffer sample) {
  std::optional<CMSampleBuffer> dropped;
  std::shared_ptr<DispatchQueue> queue;
  state_.with([&](State& state) {
    dropped = std::exchange(state.waiting, std::move(sample));
    if (!state.queue || std::exchange(state.isQueued, true)) return;
    queue = state.queue;
  });
  if (!queue) return;
  queue->async(
      [self = std::shared_ptr<LinuxVideoDataOutput>(shared_from_this(), this)] { self->takeWaiting(); });
}

void LinuxVideoDataOutput::takeWaiting() {
  std::optional<CMSampleBuffer> sample;
  std::shared_ptr<AVCaptureVideoDataOutputSampleBufferDelegate> delegate;
  state_.with([&](State& state) {
    sample = std::exchange(state.waiting, std::nullopt);
    delegate = state.delegate.lock();
  });
  if (sample && delegate) delegate->captureOutput(*this, *sample);
  std::shared_ptr<DispatchQueue> queue;
  state_.with([&](State& state) {
    state.isQueued = state.waiting.has_value() && state.queue;
    if (state.isQueued) queue = state.queue;
  });
  // Not in a loop: other blocks of the queue have their turn.
  if (!queue) return;
  queue->async(
      [self = std::shared_ptr<LinuxVideoDataOutput>(shared_from_this(), this)] { self->takeWaiting(); });
}

void LinuxVideoDataOutput::flush() {
  std::optional<CMSampleBuffer> dropped;
  state_.with([&](State& state) { dropped = std::exchange(state.waiting, std::nullopt); });
}

}  // namespace QelUtilVideo
