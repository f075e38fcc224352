#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/Gpu.h"
#include "platform/linux/vulkan/GpuMemory.h"
#include "platform/linux/vulkan/GpuPipelines.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// What goes to the graphics processor at once, and what it needs until it is done with that. Used again
/// afterwards.
class Submission {
 public:
  static std::shared_ptr<Submission> make(std::shared_ptr<Gpu> gpu);
  Submission(const Submission&) = delete;
  Submission& operator=(const Submission&) = delete;
  ~Submission();

  /// The processor is done with it, or never had it.
  [[nodiscard]] bool isFree();
  /// Begins to take commands; false when the driver refuses.
  [[nodiscard]] bool begin();
  [[nodiscard]] VkCommandBuffer commands() const { return commands_; }
  /// A set of descriptors for one drawing; null when there are no more.
  [[nodiscard]] VkDescriptorSet makeSet();
  void keep(std::shared_ptr<void> object) { kept_.push_back(std::move(object)); }
  /// Notes that its commands copy what the texture shows into it, which is done with once they were sent.
  /// False when they do already.
  [[nodiscard]] bool copiesInto(const std::shared_ptr<GpuTexture>& texture);
  /// Sends it off. False when it was not taken.
  bool send();
  void wait();

 private:
  explicit Submission(std::shared_ptr<Gpu> gpu) : gpu_(std::move(gpu)) {}
  [[nodiscard]] bool allocate();

  const std::shared_ptr<Gpu> gpu_;
  VulkanHandle<VkCommandPool> pool_;
  VulkanHandle<VkDescriptorPool> descriptors_;
  VulkanHandle<VkFence> done_;
  VkCommandBuffer commands_ = VK_NULL_HANDLE;
  bool isSent_ = false;
  std::vector<std::shared_ptr<GpuTexture>> copied_;
  std::vector<std::shared_ptr<void>> kept_;
};

/// A drawable of this layer, as the command buffer sees it.
class GpuDrawable : public CAMetalDrawable {
 public:
  [[nodiscard]] bool isPresented() const override { return isPresented_; }
  /// Adds what showing it takes to the commands.
  virtual void present(Submission& submission) = 0;
  void setPresented() { isPresented_ = true; }

 private:
  bool isPresented_ = false;
};

class GpuQueue final : public MTLCommandQueue {
 public:
  explicit GpuQueue(std::shared_ptr<Gpu> gpu) : gpu_(std::move(gpu)) {}
  /// Null when the processor is lost, or has as much to do as it is to have.
  std::shared_ptr<MTLCommandBuffer> commandBuffer() override;

 private:
  const std::shared_ptr<Gpu> gpu_;
  std::vector<std::shared_ptr<Submission>> submissions_;
};

}  // namespace QelUtilVideo
