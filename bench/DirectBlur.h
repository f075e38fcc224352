#pragma once

#include "MinimalDevice.h"

#include <array>
#include <cstdint>

namespace QelUtilVideo {

/// What blurring costs without any art: two passes over a picture, a texel fetch for every neighbour. And a
/// copy of the picture, which no blur can be faster than.
class DirectBlur {
 public:
  DirectBlur(std::uint32_t width, std::uint32_t height);
  DirectBlur(const DirectBlur&) = delete;
  DirectBlur& operator=(const DirectBlur&) = delete;
  ~DirectBlur();

  [[nodiscard]] MinimalDevice& device() { return device_; }
  /// By a Gaussian of this deviation in pixels. Returns once it was sent off.
  void blur(float sigma);
  /// Likewise.
  void copy();

 private:
  void makePipeline();
  void makeSets();
  void pass(VkCommandBuffer commands, std::uint32_t number, float sigma);

  const std::uint32_t width_, height_;
  MinimalDevice device_;
  std::array<MinimalImage, 2> pictures_;
  VkSampler sampler_ = VK_NULL_HANDLE;
  VkDescriptorSetLayout setLayout_ = VK_NULL_HANDLE;
  VkPipelineLayout layout_ = VK_NULL_HANDLE;
  VkPipeline pipeline_ = VK_NULL_HANDLE;
  VkDescriptorPool pool_ = VK_NULL_HANDLE;
  std::array<VkDescriptorSet, 2> sets_{};  ///< from one picture to the other, and back
};

}  // namespace QelUtilVideo
