#include "platform/linux/vulkan/WindowSurface.h"

#include "platform/linux/core/NoPipeSignal.h"

#include <cstddef>
#include <utility>

namespace QelUtilVideo {

namespace {

/// A window that is pulled at all the time goes through many of them; each holds several pictures.
constexpr std::size_t kMostRetired = 4;

}  // namespace

WindowSurface::~WindowSurface() {
  // What was shown may still be on its way.
  if (swapchain_ || !retired_.empty()) surface_->gpu()->finish();
}

std::shared_ptr<Swapchain> WindowSurface::acquire(std::size_t width, std::size_t height) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    isLost_ = isLost_ || !surface_->connection().isAlive() || (swapchain_ && swapchain_->isLost());
    if (isLost_) return nullptr;
    const auto hasSize = [&] {
      return swapchain_->size().width == width && swapchain_->size().height == height;
    };
    if (!swapchain_ || swapchain_->isStale() || !hasSize()) renew();
    if (!swapchain_) return nullptr;
    if (swapchain_->acquire()) {
      if (swapchain_->hasComeRound()) retired_.clear();
      return swapchain_;
    }
    if (!swapchain_->isStale()) return nullptr;
  }
  return nullptr;
}

void WindowSurface::renew() {
  const NoPipeSignal noSignal;
  VkSurfaceCapabilitiesKHR now{};
  const VkResult result =
      vkGetPhysicalDeviceSurfaceCapabilitiesKHR(surface_->gpu()->physicalDevice(), surface_->get(), &now);
  isLost_ = isLost_ || result == VK_ERROR_SURFACE_LOST_KHR;
  const bool hasArea = result == VK_SUCCESS && now.currentExtent.width > 0 && now.currentExtent.height > 0;
  const bool isSame = hasArea && swapchain_ && !swapchain_->isStale() &&
                      swapchain_->size().width == now.currentExtent.width &&
                      swapchain_->size().height == now.currentExtent.height;
  // The window is about to have the size that it is to have.
  if (isSame) return;
  const auto before = std::exchange(swapchain_, nullptr);
  if (hasArea) swapchain_ = Swapchain::make(surface_, now, before.get());
  if (!before) return;
  retired_.push_back(before);
  if (retired_.size() <= kMostRetired) return;
  surface_->gpu()->finish();
  retired_.clear();
}

}  // namespace QelUtilVideo
