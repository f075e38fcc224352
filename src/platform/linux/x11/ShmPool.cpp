#include "platform/linux/x11/ShmPool.h"

#include "platform/linux/x11/ShmSegment.h"

#include <algorithm>
#include <new>
#include <utility>

namespace QelUtilVideo {

namespace {

/// Enough for a stream whose frames wait in a delivery queue, in a view and in an encoder.
constexpr std::size_t kMaximumFreeSegments = 4;

constexpr std::size_t kPage = 4096;

}  // namespace

class ShmPool::PooledBytes : public ShmBytes {
 public:
  PooledBytes(std::unique_ptr<ShmSegment> segment, std::size_t size, std::weak_ptr<FreeList> home)
      : segment_(std::move(segment)), size_(size), home_(std::move(home)) {}

  ~PooledBytes() override {
    const std::shared_ptr<FreeList> home = home_.lock();
    if (!home) return;
    // What does not fit goes back to the system, after the lock.
    home->with([this](std::vector<std::unique_ptr<ShmSegment>>& free) {
      const auto place = std::ranges::upper_bound(free, segment_->size(), {}, &ShmSegment::size);
      free.insert(place, std::move(segment_));
      if (free.size() > kMaximumFreeSegments) {
        segment_ = std::move(free.front());
        free.erase(free.begin());
      }
    });
  }

  std::byte* data() override { return segment_->data(); }
  std::size_t size() const override { return size_; }
  xcb_shm_seg_t segment() const override { return segment_->id(); }

 private:
  std::unique_ptr<ShmSegment> segment_;
  std::size_t size_;
  std::weak_ptr<FreeList> home_;
};

ShmPool::ShmPool(std::shared_ptr<X11Connection> connection)
    : connection_(std::move(connection)), free_(std::make_shared<FreeList>()) {
  free_->with([](auto& free) { free.reserve(kMaximumFreeSegments + 1); });
}

ShmPool::~ShmPool() = default;

std::shared_ptr<ShmBytes> ShmPool::take(std::size_t size) try {
  if (size >= refusedSize_) return nullptr;
  std::unique_ptr<ShmSegment> segment = takeFree(size);
  if (!segment) segment = ShmSegment::make(connection_, (size + kPage - 1) / kPage * kPage);
  if (!segment) {
    refusedSize_ = size;
    return nullptr;
  }
  return std::make_shared<PooledBytes>(std::move(segment), size, free_);
} catch (const std::bad_alloc&) {
  return nullptr;
}

std::unique_ptr<ShmSegment> ShmPool::takeFree(std::size_t size) {
  return free_->with([&](std::vector<std::unique_ptr<ShmSegment>>& free) -> std::unique_ptr<ShmSegment> {
    const auto found = std::ranges::lower_bound(free, size, {}, &ShmSegment::size);
    // A far larger one is better kept for the pictures it was made for.
    if (found == free.end() || (*found)->size() > 2 * size + kPage) return nullptr;
    std::unique_ptr<ShmSegment> taken = std::move(*found);
    free.erase(found);
    return taken;
  });
}

}  // namespace QelUtilVideo
