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
  using Memory = std::vector<std::shared_ptr<PixelMemory>>;

  State(std::size_t pixelsWide, std::size_t pixelsHigh, OSType code)
      : width(pixelsWide), height(pixelsHigh), format(code), layout(pixelsWide, pixelsHigh, code) {
    free.with([](Memory& memory) { memory.reserve(kMaximumFreeBuffers); });
  }

  std::shared_ptr<PixelMemory> take() {
    std::shared_ptr<PixelMemory> taken = free.with([](Memory& memory) {
      if (memory.empty()) return std::shared_ptr<PixelMemory>();
      std::shared_ptr<PixelMemory> last = std::move(memory.back());
      memory.pop_back();
      return last;
    });
    return taken ? std::move(taken) : layout.allocate();
  }

  void giveBack(std::shared_ptr<PixelMemory> memory) {
    free.with([&](Memory& kept) {
      if (kept.size() < kMaximumFreeBuffers) kept.push_back(std::move(memory));
    });
  }

  const std::size_t width;
  const std::size_t height;
  const OSType format;
  const PixelMemoryLayout layout;
  Synchronised<Memory> free;  ///< the one that came back last is handed out first
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
  const std::shared_ptr<PixelMemory> memory = state_->take();
  if (!memory) return nullptr;
  auto release = [memory, pool = std::weak_ptr(state_)] {
    if (const std::shared_ptr<State> state = pool.lock()) state->giveBack(memory);
  };
  CVPixelBufferRef buffer;
  const CVReturn made = wrapPixelMemory(state_->width, state_->height, state_->format, state_->layout, memory,
                                        std::move(release), buffer);
  return made == kCVReturnSuccess ? buffer : nullptr;
} catch (const std::bad_alloc&) {
  return nullptr;
}

std::size_t CVPixelBufferPool::width() const { return state_->width; }
std::size_t CVPixelBufferPool::height() const { return state_->height; }
OSType CVPixelBufferPool::format() const { return state_->format; }

}  // namespace QelUtilVideo
