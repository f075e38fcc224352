#pragma once

#include "platform/linux/core/PrivateConnection.h"
#include "platform/linux/vulkan/Gpu.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace QelUtilVideo {

/// A window as Vulkan sees it. Held by all that was made for it.
class XcbSurface {
 public:
  /// Null when the window is gone, or the processor cannot show pictures in it.
  static std::shared_ptr<const XcbSurface> make(std::shared_ptr<Gpu> gpu,
                                                std::shared_ptr<const PrivateConnection> connection,
                                                std::uint32_t window);
  XcbSurface(const XcbSurface&) = delete;
  XcbSurface& operator=(const XcbSurface&) = delete;
  ~XcbSurface();

  [[nodiscard]] const std::shared_ptr<Gpu>& gpu() const { return gpu_; }
  [[nodiscard]] const PrivateConnection& connection() const { return *connection_; }
  [[nodiscard]] VkSurfaceKHR get() const { return surface_; }

 private:
  XcbSurface(std::shared_ptr<Gpu> gpu, std::shared_ptr<const PrivateConnection> connection,
             VkSurfaceKHR surface)
      : gpu_(std::move(gpu)), connection_(std::move(connection)), surface_(surface) {}
  [[nodiscard]] bool isUsable() const;

  const std::shared_ptr<Gpu> gpu_;
  const std::shared_ptr<const PrivateConnection> connection_;
  const VkSurfaceKHR surface_;
};

}  // namespace QelUtilVideo
