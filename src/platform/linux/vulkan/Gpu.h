#pragma once

#include "platform/CallSafely.h"
#include "platform/ThreadSafety.h"

#include <volk.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>

namespace QelUtilVideo {

/// One of Vulkan's structures with its type, and all else zero.
template <class T>
[[nodiscard]] T vulkanStruct(VkStructureType type) {
  T made{};
  made.sType = type;
  return made;
}

/// Destroys an object of a device with its owner, who keeps the device.
template <class Handle>
class VulkanHandle {
 public:
  using Destroy = void(VKAPI_PTR*)(VkDevice, Handle, const VkAllocationCallbacks*);

  VulkanHandle() = default;
  VulkanHandle(VkDevice device, Handle handle, Destroy destroy)
      : device_(device), handle_(handle), destroy_(destroy) {}
  VulkanHandle(VulkanHandle&& other) noexcept
      : device_(other.device_),
        handle_(std::exchange(other.handle_, VK_NULL_HANDLE)),
        destroy_(other.destroy_) {}
  VulkanHandle& operator=(VulkanHandle&& other) noexcept {
    std::swap(device_, other.device_);
    std::swap(handle_, other.handle_);
    std::swap(destroy_, other.destroy_);
    return *this;
  }
  VulkanHandle(const VulkanHandle&) = delete;
  VulkanHandle& operator=(const VulkanHandle&) = delete;
  ~VulkanHandle() {
    if (handle_ != VK_NULL_HANDLE) destroy_(device_, handle_, nullptr);
  }

  [[nodiscard]] Handle get() const { return handle_; }
  explicit operator bool() const { return handle_ != VK_NULL_HANDLE; }

 private:
  VkDevice device_ = VK_NULL_HANDLE;
  Handle handle_ = VK_NULL_HANDLE;
  Destroy destroy_ = nullptr;
};

/// What was done with pictures so far.
struct GpuCounters {
  std::uint64_t bytesCopied = 0;  ///< to where the graphics processor reads them
  std::uint64_t uploads = 0;      ///< planes that it was told to copy into a texture
  std::uint64_t imports = 0;      ///< pieces of memory that it reads in place
  std::uint64_t allocations = 0;  ///< textures and pieces of memory to copy to, made for want of spare ones
};

/// An opened graphics processor and what all that is drawn with it shares. Held by everything that was made
/// of it, which may be let go of on any thread.
class Gpu {
 public:
  /// The best one: a discrete processor before an integrated one before a software one; null when there is no
  /// loader, no driver, or none that can draw. What validation layers say, and what fails, goes to `trouble`.
  static std::shared_ptr<Gpu> open(TroubleHandler trouble);
  Gpu(const Gpu&) = delete;
  Gpu& operator=(const Gpu&) = delete;
  ~Gpu();

  [[nodiscard]] VkDevice device() const { return device_; }
  [[nodiscard]] std::uint32_t queueFamily() const { return queueFamily_; }
  [[nodiscard]] const VkPhysicalDeviceProperties& properties() const { return properties_; }
  [[nodiscard]] VkInstance instance() const { return instance_; }
  [[nodiscard]] VkPhysicalDevice physicalDevice() const { return physicalDevice_; }
  /// Whether pictures can be shown in windows at all.
  [[nodiscard]] bool canShow() const { return canShow_; }
  /// A type of memory that fits `types` and has the properties; none: UINT32_MAX.
  [[nodiscard]] std::uint32_t memoryType(std::uint32_t types, VkMemoryPropertyFlags properties) const;
  /// Memory of a type that has the properties; empty when there is none.
  [[nodiscard]] VulkanHandle<VkDeviceMemory> allocate(const VkMemoryRequirements& needs,
                                                      VkMemoryPropertyFlags properties);

  /// What addresses and sizes of the process's memory are multiples of to be read in place; 0 when it cannot
  /// be.
  [[nodiscard]] VkDeviceSize hostPointerAlignment() const { return hostPointerAlignment_; }
  [[nodiscard]] GpuCounters& counters() { return counters_; }

  // The queue of the processor. Any thread.
  VkResult submit(const VkSubmitInfo& work, VkFence done);
  VkResult present(const VkPresentInfoKHR& pictures);
  /// Waits until all that was submitted is done.
  void finish();

  // Shared by all pipelines.
  /// Set 0 of what draws: binding 0 the vertex stage's uniform buffer, bindings 1 and 2 the fragment stage's
  /// textures.
  [[nodiscard]] VkDescriptorSetLayout setLayout() const { return setLayout_.get(); }
  [[nodiscard]] VkPipelineLayout pipelineLayout() const { return pipelineLayout_.get(); }
  /// Set 0 of kernels, as compute pipelines have it.
  [[nodiscard]] VkDescriptorSetLayout kernelSetLayout() const { return kernelSetLayout_.get(); }
  [[nodiscard]] VkPipelineLayout kernelLayout() const { return kernelLayout_.get(); }
  [[nodiscard]] VkSampler sampler() const { return sampler_.get(); }
  /// One attachment, BGRA8: cleared, drawn on, and left for `finalLayout` to be read or shown.
  [[nodiscard]] VkRenderPass renderPass() const { return renderPass_.get(); }

  /// Whether the processor was lost; nothing works any more then.
  [[nodiscard]] bool isLost() const { return isLost_; }
  /// It carried something out, so that opening it anew after a loss may help.
  void noteProgress() { hasWorked_ = true; }
  void forgetProgress() { hasWorked_ = false; }
  [[nodiscard]] bool hasWorked() const { return hasWorked_; }
  /// Notes a loss, and reports every failure. Answers whether the call succeeded.
  bool check(VkResult result, const char* what);

 private:
  explicit Gpu(TroubleHandler trouble) : trouble_(std::move(trouble)) {}
  [[nodiscard]] bool makeInstance();
  [[nodiscard]] bool chooseDevice();
  [[nodiscard]] bool makeDevice();
  [[nodiscard]] bool makeSampler();
  [[nodiscard]] bool makeLayouts();
  [[nodiscard]] bool makeRenderPass();
  /// A layout of set 0, and one of pipelines that have no other set.
  struct Layouts {
    VulkanHandle<VkDescriptorSetLayout> set;
    VulkanHandle<VkPipelineLayout> pipeline;
  };
  [[nodiscard]] Layouts makeLayouts(std::span<const VkDescriptorSetLayoutBinding> bindings);

  const TroubleHandler trouble_;
  VkInstance instance_ = VK_NULL_HANDLE;
  VkDebugUtilsMessengerEXT messenger_ = VK_NULL_HANDLE;
  VkPhysicalDevice physicalDevice_ = VK_NULL_HANDLE;
  VkPhysicalDeviceMemoryProperties memory_{};
  VkPhysicalDeviceProperties properties_{};
  VkDevice device_ = VK_NULL_HANDLE;
  Mutex queueMutex_;
  VkQueue queue_ GUARDED_BY(queueMutex_) = VK_NULL_HANDLE;
  std::uint32_t queueFamily_ = 0;
  std::atomic<bool> isLost_ = false;
  std::atomic<bool> hasWorked_ = false;
  bool canShow_ = false;
  VkDeviceSize hostPointerAlignment_ = 0;
  GpuCounters counters_;
  VulkanHandle<VkDescriptorSetLayout> setLayout_;
  VulkanHandle<VkPipelineLayout> pipelineLayout_;
  VulkanHandle<VkDescriptorSetLayout> kernelSetLayout_;
  VulkanHandle<VkPipelineLayout> kernelLayout_;
  VulkanHandle<VkSampler> sampler_;
  VulkanHandle<VkRenderPass> renderPass_;
};

}  // namespace QelUtilVideo
