#pragma once

#include "platform/linux/vulkan/Swapchain.h"
#include "platform/linux/vulkan/XcbSurface.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// A window that a graphics processor shows pictures in, whatever becomes of its size. One thread at a time.
class WindowSurface {
 public:
  explicit WindowSurface(std::shared_ptr<const XcbSurface> surface) : surface_(std::move(surface)) {}
  WindowSurface(const WindowSurface&) = delete;
  WindowSurface& operator=(const WindowSurface&) = delete;
  ~WindowSurface();

  /// The window or its server is gone.
  [[nodiscard]] bool isLost() const { return isLost_; }
  /// One with a picture acquired, for a window that is to have that size; null: there is none just now.
  [[nodiscard]] std::shared_ptr<Swapchain> acquire(std::size_t width, std::size_t height);

 private:
  void renew();

  const std::shared_ptr<const XcbSurface> surface_;
  std::shared_ptr<Swapchain> swapchain_;
  std::vector<std::shared_ptr<Swapchain>> retired_;  ///< what they presented may not be shown yet
  bool isLost_ = false;
};

}  // namespace QelUtilVideo
