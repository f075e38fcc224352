#include <QelUtilVideo/platform/CVPixelBufferPool.h>

#include "platform/PixelLayout.h"
#include "platform/Synchronised.h"

#include <new>
#include <utility>

namespace QelUtilVideo {

namespace {

/// Enough for a stream whose frames wait in a delivery queue, in a view and in an encoder; memory that
/// comes back beyond that is freed.
constexpr std::size_t kMaximumFreeBuffers = 4;

}  // namespace

struct CVPixelBufferPool::State {
  State(std::size_t pixelsWide, std::size_t pixelsHigh, OSType code)
      : width(pixelsWide), height(pixelsHigh), format(code), layout(pixelsWide, pixelsHigh, code) {
    free.with([](std::vector<PixelMemory>& memory) { memory.reserve(kMaximumFreeBuffers); });
  }

  PixelMemory take() {
    PixelMemory taken = free.with([](std::vector<PixelMemory>& memory) {
      if (memory.empty()) return PixelMemory();
      PixelMemory last = std::move(memory.back());
      memory.pop_back();
      return last;
    });
    return taken ? std::move(taken) : layout.allocate();
  }

  void giveBack(PixelMemory memory) {
    free.with([&](std::vector<PixelMemory>& kept) {
      if (kept.size() < kMaximumFreeBuffers) kept.push_back(std::move(memory));
    });
  }

  const std::size_t width;
  const std::size_t height;
  const OSType format;
  const PixelMemoryLayout layout;
  Synchronised<std::vector<PixelMemory>> free;  ///< the one that came back last is handed out first
};

std::shared_ptr<CVPixelBufferPool> CVPixelBufferPool::make(std::size_t width, std::size_t height,
                                                           OSType format) try {
  struct Pool : CVPixelBufferPool {
    explicit Pool(std::shared_ptr<State> state) : CVPixelBufferPool(std::move(state)) {}
  };
  if (checkPixelBufferSize(width, height, format) != kCVReturnSuccess) return nullptr;
  return std::make_shared<Pool>(std::make_shared<State>(width, height, format));
} catch (const std::bad_alloc&) {
  return nullptr;
}

CVPixelBufferPool::CVPixelBufferPool(std::shared_ptr<State> state) : state_(std::move(state)) {}

CVPixelBufferPool::~CVPixelBufferPool() = default;

CVPixelBufferRef CVPixelBufferPool::makePixelBuffer() try {
  const auto memory = std::make_shared<PixelMemory>(state_->take());
  if (!*memory) return nullptr;
  auto release = [memory, pool = std::weak_ptr(state_)] {
    if (const std::shared_ptr<State> state = pool.lock()) state->giveBack(std::move(*memory));
  };
  CVPixelBufferRef buffer;
  const CVReturn made = wrapPixelMemory(state_->width, state_->height, state_->format, state_->layout,
                                        memory->get(), std::move(release), buffer);
  return made == kCVReturnSuccess ? buffer : nullptr;
} catch (const std::bad_alloc&) {
  return nullptr;
}

std::size_t CVPixelBufferPool::width() const { return state_->width; }
std::size_t CVPixelBufferPool::height() const { return state_->height; }
OSType CVPixelBufferPool::format() const { return state_->format; }

}  // namespace QelUtilVideo
