#pragma once

#include "platform/linux/vulkan/GpuTexture.h"
#include "platform/linux/vulkan/Submission.h"
#include "platform/linux/vulkan/XcbSurface.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// The pictures of a window while it has one size. One thread at a time.
class Swapchain : public std::enable_shared_from_this<Swapchain> {
 public:
  /// Null when the driver refuses. `before` is the one that it replaces, or null.
  static std::shared_ptr<Swapchain> make(std::shared_ptr<const XcbSurface> surface,
                                         const VkSurfaceCapabilitiesKHR& capabilities,
                                         const Swapchain* before);
  Swapchain(const Swapchain&) = delete;
  Swapchain& operator=(const Swapchain&) = delete;
  ~Swapchain();

  [[nodiscard]] VkExtent2D size() const { return size_; }
  /// The window has another size by now, or is shown otherwise than it was.
  [[nodiscard]] bool isStale() const { return isStale_; }
  /// The window is gone.
  [[nodiscard]] bool isLost() const { return isLost_; }
  /// A picture that was presented came back, so that what was presented before this one existed is long
  /// shown.
  [[nodiscard]] bool hasComeRound() const { return hasComeRound_; }
  /// The picture acquired, or one that is free; false: there is none just now.
  [[nodiscard]] bool acquire();
  /// Records the copy of a picture of the processor's, which is in the layout of sources of copies, into the
  /// acquired picture, stretched where sizes differ, and shows that when the submission was sent.
  void show(const GpuTexture& picture, Submission& submission);

 private:
  struct Image {
    VkImage image = VK_NULL_HANDLE;
    VulkanHandle<VkSemaphore> isAcquired;
    VulkanHandle<VkSemaphore> isDrawn;
    bool wasPresented = false;
  };

  Swapchain(std::shared_ptr<const XcbSurface> surface, VkExtent2D size)
      : surface_(std::move(surface)), gpu_(surface_->gpu()), size_(size) {}
  [[nodiscard]] bool makeImages();
  [[nodiscard]] VulkanHandle<VkSemaphore> makeSemaphore() const;
  void copy(const GpuTexture& picture, VkImage image, VkCommandBuffer commands) const;
  void present(std::uint32_t index);

  const std::shared_ptr<const XcbSurface> surface_;
  const std::shared_ptr<Gpu> gpu_;
  const VkExtent2D size_;
  VulkanHandle<VkSwapchainKHR> swapchain_;
  std::vector<Image> images_;
  VulkanHandle<VkSemaphore> nextSemaphore_;  ///< for the next acquisition, which does not know its picture
  std::optional<std::uint32_t> acquired_;
  bool isStale_ = false, isLost_ = false, hasComeRound_ = false;
};

}  // namespace QelUtilVideo
