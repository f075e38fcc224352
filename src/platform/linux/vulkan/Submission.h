#pragma once

#include "platform/linux/vulkan/Gpu.h"
#include "platform/linux/vulkan/GpuBuffer.h"
#include "platform/linux/vulkan/GpuTexture.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// What goes to the graphics processor at once, and what it needs until it is done with that. Used again
/// afterwards. One thread at a time; the last reference may be dropped on any.
class Submission : public std::enable_shared_from_this<Submission> {
 public:
  /// Null when the driver refuses.
  static std::shared_ptr<Submission> make(std::shared_ptr<Gpu> gpu);
  Submission(const Submission&) = delete;
  Submission& operator=(const Submission&) = delete;
  ~Submission();

  [[nodiscard]] const std::shared_ptr<Gpu>& gpu() const { return gpu_; }
  /// The processor is done with it, or never had it.
  [[nodiscard]] bool isFree();
  /// Begins to take commands; false when the driver refuses.
  [[nodiscard]] bool begin();
  [[nodiscard]] VkCommandBuffer commands() const { return commands_; }
  /// A set of descriptors for one drawing or kernel; null when there are no more.
  [[nodiscard]] VkDescriptorSet makeSet(VkDescriptorSetLayout layout);
  /// Bytes where the processor reads them.
  struct Place {
    VkBuffer buffer = VK_NULL_HANDLE;
    VkDeviceSize offset = 0;
    VkDeviceSize size = 0;
  };
  /// Copies them to where they stay until the processor is done; absent when there is no memory.
  [[nodiscard]] std::optional<Place> place(std::span<const std::byte> bytes);
  void keep(std::shared_ptr<void> object) { kept_.push_back(std::move(object)); }
  /// Notes that its commands copy what the texture shows into it, which is done with once they were sent.
  /// False when they do already.
  [[nodiscard]] bool copiesInto(const std::shared_ptr<GpuTexture>& texture);
  /// The processor copies nothing before the first was signalled, and signals the second at the end.
  void order(VkSemaphore before, VkSemaphore after) {
    before_ = before;
    after_ = after;
  }
  /// Called once, by `send` when it was sent.
  void whenSent(std::function<void()> function) { whenSent_ = std::move(function); }
  /// Sends it off. False when it was not taken, and free again.
  bool send();
  /// Forgets what was recorded. Not between `send` and the end of the work.
  void abandon();
  /// Until the processor is done with what was sent. False when it may not have carried it out.
  bool wait();

 private:
  explicit Submission(std::shared_ptr<Gpu> gpu) : gpu_(std::move(gpu)) {}
  [[nodiscard]] bool allocate();

  const std::shared_ptr<Gpu> gpu_;
  VulkanHandle<VkCommandPool> pool_;
  VulkanHandle<VkDescriptorPool> descriptors_;
  VulkanHandle<VkFence> done_;
  VkCommandBuffer commands_ = VK_NULL_HANDLE;
  enum class State : std::uint8_t { free, recorded, sent } state_ = State::free;
  VkSemaphore before_ = VK_NULL_HANDLE;
  VkSemaphore after_ = VK_NULL_HANDLE;
  std::function<void()> whenSent_;
  std::vector<std::shared_ptr<GpuTexture>> copied_;
  std::vector<std::shared_ptr<void>> kept_;
  std::shared_ptr<GpuBuffer> places_;  ///< made when first needed
  std::size_t placed_ = 0;             ///< bytes of it that are taken
};

}  // namespace QelUtilVideo
