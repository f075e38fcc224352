// A Vulkan driver that does nothing, successfully, and at once: what is left of the time is the caller's own.
// Memory that can be mapped is real; nothing is ever written to it, nor to any picture.

#include "NoOpVulkan.h"

#include <vulkan/vk_icd.h>
#include <vulkan/vulkan.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using QelUtilVideo::NoOpVulkanCounts;

constexpr std::uint32_t kVersion = VK_API_VERSION_1_1;
constexpr std::uint32_t kDeviceMemory = 0, kHostMemory = 1;  // types of memory
constexpr VkDeviceSize kPage = 4096;

NoOpVulkanCounts& counts() {
  static NoOpVulkanCounts all;
  return all;
}

// ── Objects ───────────────────────────────────────────────────────────────────────────────────────

/// What the loader writes a table into: an instance, a device, a queue, a command buffer.
struct Dispatchable {
  VK_LOADER_DATA loader{ICD_LOADER_MAGIC};
};

struct Memory {
  std::unique_ptr<std::byte[]> bytes;  ///< of a type that can be mapped
  void* imported = nullptr;
};

struct Buffer {
  VkDeviceSize size = 0;
  bool isImported = false;
};

struct Image {
  VkDeviceSize size = 0;
};

struct CommandPool {
  std::vector<std::unique_ptr<Dispatchable>> commandBuffers;
};

Dispatchable& physicalDevice() {
  static Dispatchable only;
  return only;
}

Dispatchable& queue() {
  static Dispatchable only;
  return only;
}

template <class Handle, class Object>
Handle handleOf(std::unique_ptr<Object> object) {
  return reinterpret_cast<Handle>(object.release());
}

template <class Object, class Handle>
Object& objectOf(Handle handle) {
  return *reinterpret_cast<Object*>(handle);
}

template <class Object, class Handle>
void destroy(Handle handle) {
  const std::unique_ptr<Object> last(reinterpret_cast<Object*>(handle));
}

/// Of an object that nothing is to be known of.
template <class Handle>
Handle newHandle() {
  static std::atomic<std::uintptr_t> last{0};
  return reinterpret_cast<Handle>(++last);
}

/// Vulkan's way to answer with a list of one, or with how long it is.
template <class T>
VkResult answerOne(const T& only, std::uint32_t* count, T* list) {
  if (list && *count > 0) *list = only;
  *count = 1;
  return VK_SUCCESS;
}

// ── Functions that need no body of their own ──────────────────────────────────────────────────────

template <class Function>
struct Trivial;

template <class R, class... Arguments>
struct Trivial<R(VKAPI_PTR*)(Arguments...)> {
  static VKAPI_ATTR R VKAPI_CALL succeed(Arguments...) {
    if constexpr (!std::is_void_v<R>) return R{};
  }
  static VKAPI_ATTR R VKAPI_CALL record(Arguments...) { counts().commands += 1; }
  static VKAPI_ATTR R VKAPI_CALL draw(Arguments...) {
    counts().commands += 1;
    counts().draws += 1;
  }
};

template <class Function>
struct Making;

template <class Info, class Handle>
struct Making<VkResult(VKAPI_PTR*)(VkDevice, const Info*, const VkAllocationCallbacks*, Handle*)> {
  static VKAPI_ATTR VkResult VKAPI_CALL make(VkDevice, const Info*, const VkAllocationCallbacks*,
                                             Handle* made) {
    *made = newHandle<Handle>();
    return VK_SUCCESS;
  }
};

/// Pipelines are made several at a time.
template <class Info>
VKAPI_ATTR VkResult VKAPI_CALL makePipelines(VkDevice, VkPipelineCache, std::uint32_t count, const Info*,
                                             const VkAllocationCallbacks*, VkPipeline* made) {
  std::generate_n(made, count, newHandle<VkPipeline>);
  return VK_SUCCESS;
}

// ── The instance and its one physical device ──────────────────────────────────────────────────────

VkResult createInstance(const VkInstanceCreateInfo*, const VkAllocationCallbacks*, VkInstance* instance) {
  *instance = handleOf<VkInstance>(std::make_unique<Dispatchable>());
  return VK_SUCCESS;
}

void destroyInstance(VkInstance instance, const VkAllocationCallbacks*) { destroy<Dispatchable>(instance); }

VkResult enumerateInstanceVersion(std::uint32_t* version) {
  *version = kVersion;
  return VK_SUCCESS;
}

VkResult enumerateInstanceExtensions(const char*, std::uint32_t* count, VkExtensionProperties*) {
  *count = 0;
  return VK_SUCCESS;
}

VkResult enumeratePhysicalDevices(VkInstance, std::uint32_t* count, VkPhysicalDevice* devices) {
  return answerOne(reinterpret_cast<VkPhysicalDevice>(&physicalDevice()), count, devices);
}

void getProperties(VkPhysicalDevice, VkPhysicalDeviceProperties* properties) {
  *properties = {};
  properties->apiVersion = kVersion;
  properties->deviceType = VK_PHYSICAL_DEVICE_TYPE_OTHER;
  std::strcpy(properties->deviceName, "a driver that does nothing");
  VkPhysicalDeviceLimits& limits = properties->limits;
  limits.maxImageDimension2D = limits.maxFramebufferWidth = limits.maxFramebufferHeight = 16384;
  limits.maxMemoryAllocationCount = 4096;
  limits.maxPushConstantsSize = 256;
  limits.maxComputeWorkGroupInvocations = 1024;
  limits.maxComputeSharedMemorySize = 32768;
  std::fill_n(limits.maxComputeWorkGroupCount, 3, 65535U);
  std::fill_n(limits.maxComputeWorkGroupSize, 3, 1024U);
  limits.minMemoryMapAlignment = 64;
  limits.minUniformBufferOffsetAlignment = limits.minStorageBufferOffsetAlignment = 64;
  limits.optimalBufferCopyOffsetAlignment = limits.optimalBufferCopyRowPitchAlignment = 1;
  limits.nonCoherentAtomSize = 1;
  limits.timestampPeriod = 1;
}

void getProperties2(VkPhysicalDevice device, VkPhysicalDeviceProperties2* properties) {
  getProperties(device, &properties->properties);
  for (auto* next = static_cast<VkBaseOutStructure*>(properties->pNext); next; next = next->pNext) {
    if (next->sType != VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_EXTERNAL_MEMORY_HOST_PROPERTIES_EXT) continue;
    reinterpret_cast<VkPhysicalDeviceExternalMemoryHostPropertiesEXT*>(next)
        ->minImportedHostPointerAlignment = kPage;
  }
}

void getFeatures(VkPhysicalDevice, VkPhysicalDeviceFeatures* features) {
  // All of them.
  static_assert(sizeof *features % sizeof(VkBool32) == 0);
  std::fill_n(reinterpret_cast<VkBool32*>(features), sizeof *features / sizeof(VkBool32), VK_TRUE);
}

void getFeatures2(VkPhysicalDevice device, VkPhysicalDeviceFeatures2* features) {
  getFeatures(device, &features->features);
}

void getFormat(VkPhysicalDevice, VkFormat, VkFormatProperties* properties) {
  constexpr VkFormatFeatureFlags all = 0x7fffffff;
  *properties = {all, all, all};
}

VkResult getImageFormat(VkPhysicalDevice, VkFormat, VkImageType, VkImageTiling, VkImageUsageFlags,
                        VkImageCreateFlags, VkImageFormatProperties* properties) {
  *properties = {{16384, 16384, 1}, 15, 1, VK_SAMPLE_COUNT_1_BIT, VkDeviceSize{1} << 31};
  return VK_SUCCESS;
}

void getQueueFamilies(VkPhysicalDevice, std::uint32_t* count, VkQueueFamilyProperties* families) {
  constexpr VkQueueFlags all = VK_QUEUE_GRAPHICS_BIT | VK_QUEUE_COMPUTE_BIT | VK_QUEUE_TRANSFER_BIT;
  answerOne(VkQueueFamilyProperties{all, 1, 64, {1, 1, 1}}, count, families);
}

void getMemory(VkPhysicalDevice, VkPhysicalDeviceMemoryProperties* memory) {
  *memory = {};
  memory->memoryHeapCount = 1;
  memory->memoryHeaps[0] = {VkDeviceSize{1} << 34, VK_MEMORY_HEAP_DEVICE_LOCAL_BIT};
  memory->memoryTypeCount = 2;
  memory->memoryTypes[kDeviceMemory] = {VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT, 0};
  memory->memoryTypes[kHostMemory] = {VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT |
                                          VK_MEMORY_PROPERTY_HOST_COHERENT_BIT |
                                          VK_MEMORY_PROPERTY_HOST_CACHED_BIT,
                                      0};
}

void getExternalBuffer(VkPhysicalDevice, const VkPhysicalDeviceExternalBufferInfo* info,
                       VkExternalBufferProperties* properties) {
  const auto type = info->handleType;
  const bool isHost = type == VK_EXTERNAL_MEMORY_HANDLE_TYPE_HOST_ALLOCATION_BIT_EXT;
  properties->externalMemoryProperties = {};
  if (isHost)
    properties->externalMemoryProperties = {VK_EXTERNAL_MEMORY_FEATURE_IMPORTABLE_BIT, 0,
                                            static_cast<VkExternalMemoryHandleTypeFlags>(type)};
}

VkResult enumerateDeviceExtensions(VkPhysicalDevice, const char*, std::uint32_t* count,
                                   VkExtensionProperties* all) {
  return answerOne({VK_EXT_EXTERNAL_MEMORY_HOST_EXTENSION_NAME, 1}, count, all);
}

VkResult createDevice(VkPhysicalDevice, const VkDeviceCreateInfo*, const VkAllocationCallbacks*,
                      VkDevice* device) {
  *device = handleOf<VkDevice>(std::make_unique<Dispatchable>());
  return VK_SUCCESS;
}

void destroyDevice(VkDevice device, const VkAllocationCallbacks*) { destroy<Dispatchable>(device); }

void getQueue(VkDevice, std::uint32_t, std::uint32_t, VkQueue* made) {
  *made = reinterpret_cast<VkQueue>(&queue());
}

// ── Memory ────────────────────────────────────────────────────────────────────────────────────────

VkResult allocateMemory(VkDevice, const VkMemoryAllocateInfo* info, const VkAllocationCallbacks*,
                        VkDeviceMemory* memory) try {
  auto made = std::make_unique<Memory>();
  for (auto* next = static_cast<const VkBaseInStructure*>(info->pNext); next; next = next->pNext) {
    if (next->sType == VK_STRUCTURE_TYPE_IMPORT_MEMORY_HOST_POINTER_INFO_EXT)
      made->imported = reinterpret_cast<const VkImportMemoryHostPointerInfoEXT*>(next)->pHostPointer;
  }
  (made->imported ? counts().imports : counts().allocations) += 1;
  if (!made->imported && info->memoryTypeIndex == kHostMemory)
    made->bytes = std::make_unique_for_overwrite<std::byte[]>(info->allocationSize);
  *memory = handleOf<VkDeviceMemory>(std::move(made));
  return VK_SUCCESS;
} catch (const std::bad_alloc&) {
  return VK_ERROR_OUT_OF_HOST_MEMORY;
}

void freeMemory(VkDevice, VkDeviceMemory memory, const VkAllocationCallbacks*) { destroy<Memory>(memory); }

VkResult mapMemory(VkDevice, VkDeviceMemory memory, VkDeviceSize offset, VkDeviceSize, VkMemoryMapFlags,
                   void** bytes) {
  const Memory& mapped = objectOf<Memory>(memory);
  *bytes = (mapped.imported ? static_cast<std::byte*>(mapped.imported) : mapped.bytes.get()) + offset;
  return VK_SUCCESS;
}

VkResult getHostPointer(VkDevice, VkExternalMemoryHandleTypeFlagBits, const void*,
                        VkMemoryHostPointerPropertiesEXT* properties) {
  properties->memoryTypeBits = 1U << kHostMemory;
  return VK_SUCCESS;
}

VkResult createBuffer(VkDevice, const VkBufferCreateInfo* info, const VkAllocationCallbacks*,
                      VkBuffer* buffer) {
  *buffer = handleOf<VkBuffer>(std::make_unique<Buffer>(Buffer{info->size}));
  return VK_SUCCESS;
}

void destroyBuffer(VkDevice, VkBuffer buffer, const VkAllocationCallbacks*) { destroy<Buffer>(buffer); }

void getBufferRequirements(VkDevice, VkBuffer buffer, VkMemoryRequirements* needs) {
  *needs = {objectOf<Buffer>(buffer).size, 64, 1U << kDeviceMemory | 1U << kHostMemory};
}

VkResult bindBuffer(VkDevice, VkBuffer buffer, VkDeviceMemory memory, VkDeviceSize) {
  objectOf<Buffer>(buffer).isImported = objectOf<Memory>(memory).imported != nullptr;
  return VK_SUCCESS;
}

VkResult createImage(VkDevice, const VkImageCreateInfo* info, const VkAllocationCallbacks*, VkImage* image) {
  const VkDeviceSize size = VkDeviceSize{4} * info->extent.width * info->extent.height;
  *image = handleOf<VkImage>(std::make_unique<Image>(Image{size}));
  return VK_SUCCESS;
}

void destroyImage(VkDevice, VkImage image, const VkAllocationCallbacks*) { destroy<Image>(image); }

void getImageRequirements(VkDevice, VkImage image, VkMemoryRequirements* needs) {
  *needs = {objectOf<Image>(image).size, 64, 1U << kDeviceMemory};
}

// ── Commands ──────────────────────────────────────────────────────────────────────────────────────

VkResult allocateSets(VkDevice, const VkDescriptorSetAllocateInfo* info, VkDescriptorSet* sets) {
  std::generate_n(sets, info->descriptorSetCount, newHandle<VkDescriptorSet>);
  counts().descriptorSets += info->descriptorSetCount;
  return VK_SUCCESS;
}

VkResult createCommandPool(VkDevice, const VkCommandPoolCreateInfo*, const VkAllocationCallbacks*,
                           VkCommandPool* pool) {
  *pool = handleOf<VkCommandPool>(std::make_unique<CommandPool>());
  return VK_SUCCESS;
}

void destroyCommandPool(VkDevice, VkCommandPool pool, const VkAllocationCallbacks*) {
  destroy<CommandPool>(pool);
}

/// They go with their pool.
VkResult allocateCommandBuffers(VkDevice, const VkCommandBufferAllocateInfo* info, VkCommandBuffer* made) {
  auto& all = objectOf<CommandPool>(info->commandPool).commandBuffers;
  std::generate_n(made, info->commandBufferCount, [&] {
    return reinterpret_cast<VkCommandBuffer>(all.emplace_back(std::make_unique<Dispatchable>()).get());
  });
  return VK_SUCCESS;
}

void copyBufferToImage(VkCommandBuffer, VkBuffer buffer, VkImage, VkImageLayout, std::uint32_t,
                       const VkBufferImageCopy*) {
  counts().commands += 1;
  (objectOf<Buffer>(buffer).isImported ? counts().importedUploads : counts().stagedUploads) += 1;
}

VkResult submit(VkQueue, std::uint32_t count, const VkSubmitInfo* infos, VkFence) {
  for (std::uint32_t i = 0; i < count; ++i) counts().submissions += infos[i].commandBufferCount;
  return VK_SUCCESS;
}

// ── Names ─────────────────────────────────────────────────────────────────────────────────────────

using Functions = std::unordered_map<std::string_view, PFN_vkVoidFunction>;

/// With the type that Vulkan declares for it.
template <class Function>
PFN_vkVoidFunction body(Function function) {
  return reinterpret_cast<PFN_vkVoidFunction>(function);
}
template <class Function>
PFN_vkVoidFunction succeed() {
  return body(&Trivial<Function>::succeed);
}
template <class Function>
PFN_vkVoidFunction record() {
  return body(&Trivial<Function>::record);
}
template <class Function>
PFN_vkVoidFunction draw() {
  return body(&Trivial<Function>::draw);
}
template <class Function>
PFN_vkVoidFunction make() {
  return body(&Making<Function>::make);
}

PFN_vkVoidFunction find(std::string_view name);
PFN_vkVoidFunction getDeviceProcAddr(VkDevice, const char* name) { return find(name); }

Functions instanceFunctions() {
  return {
      {"vkCreateInstance", body<PFN_vkCreateInstance>(createInstance)},
      {"vkDestroyInstance", body<PFN_vkDestroyInstance>(destroyInstance)},
      {"vkEnumerateInstanceVersion", body<PFN_vkEnumerateInstanceVersion>(enumerateInstanceVersion)},
      {"vkEnumerateInstanceExtensionProperties",
       body<PFN_vkEnumerateInstanceExtensionProperties>(enumerateInstanceExtensions)},
      {"vkEnumeratePhysicalDevices", body<PFN_vkEnumeratePhysicalDevices>(enumeratePhysicalDevices)},
      {"vkGetPhysicalDeviceProperties", body<PFN_vkGetPhysicalDeviceProperties>(getProperties)},
      {"vkGetPhysicalDeviceProperties2", body<PFN_vkGetPhysicalDeviceProperties2>(getProperties2)},
      {"vkGetPhysicalDeviceFeatures", body<PFN_vkGetPhysicalDeviceFeatures>(getFeatures)},
      {"vkGetPhysicalDeviceFeatures2", body<PFN_vkGetPhysicalDeviceFeatures2>(getFeatures2)},
      {"vkGetPhysicalDeviceFormatProperties", body<PFN_vkGetPhysicalDeviceFormatProperties>(getFormat)},
      {"vkGetPhysicalDeviceImageFormatProperties",
       body<PFN_vkGetPhysicalDeviceImageFormatProperties>(getImageFormat)},
      {"vkGetPhysicalDeviceSparseImageFormatProperties",
       succeed<PFN_vkGetPhysicalDeviceSparseImageFormatProperties>()},
      {"vkGetPhysicalDeviceQueueFamilyProperties",
       body<PFN_vkGetPhysicalDeviceQueueFamilyProperties>(getQueueFamilies)},
      {"vkGetPhysicalDeviceMemoryProperties", body<PFN_vkGetPhysicalDeviceMemoryProperties>(getMemory)},
      {"vkGetPhysicalDeviceExternalBufferProperties",
       body<PFN_vkGetPhysicalDeviceExternalBufferProperties>(getExternalBuffer)},
      {"vkEnumerateDeviceExtensionProperties",
       body<PFN_vkEnumerateDeviceExtensionProperties>(enumerateDeviceExtensions)},
      {"vkCreateDevice", body<PFN_vkCreateDevice>(createDevice)},
      {"vkGetDeviceProcAddr", body<PFN_vkGetDeviceProcAddr>(getDeviceProcAddr)},
  };
}

Functions deviceFunctions() {
  return {
      {"vkDestroyDevice", body<PFN_vkDestroyDevice>(destroyDevice)},
      {"vkGetDeviceQueue", body<PFN_vkGetDeviceQueue>(getQueue)},
      {"vkDeviceWaitIdle", succeed<PFN_vkDeviceWaitIdle>()},
      {"vkQueueWaitIdle", succeed<PFN_vkQueueWaitIdle>()},
      {"vkQueueSubmit", body<PFN_vkQueueSubmit>(submit)},
      {"vkCreateFence", make<PFN_vkCreateFence>()},
      {"vkDestroyFence", succeed<PFN_vkDestroyFence>()},
      {"vkResetFences", succeed<PFN_vkResetFences>()},
      {"vkGetFenceStatus", succeed<PFN_vkGetFenceStatus>()},
      {"vkWaitForFences", succeed<PFN_vkWaitForFences>()},
      {"vkCreateSemaphore", make<PFN_vkCreateSemaphore>()},
      {"vkDestroySemaphore", succeed<PFN_vkDestroySemaphore>()},

      {"vkAllocateMemory", body<PFN_vkAllocateMemory>(allocateMemory)},
      {"vkFreeMemory", body<PFN_vkFreeMemory>(freeMemory)},
      {"vkMapMemory", body<PFN_vkMapMemory>(mapMemory)},
      {"vkUnmapMemory", succeed<PFN_vkUnmapMemory>()},
      {"vkFlushMappedMemoryRanges", succeed<PFN_vkFlushMappedMemoryRanges>()},
      {"vkInvalidateMappedMemoryRanges", succeed<PFN_vkInvalidateMappedMemoryRanges>()},
      {"vkGetMemoryHostPointerPropertiesEXT", body<PFN_vkGetMemoryHostPointerPropertiesEXT>(getHostPointer)},
      {"vkCreateBuffer", body<PFN_vkCreateBuffer>(createBuffer)},
      {"vkDestroyBuffer", body<PFN_vkDestroyBuffer>(destroyBuffer)},
      {"vkGetBufferMemoryRequirements", body<PFN_vkGetBufferMemoryRequirements>(getBufferRequirements)},
      {"vkBindBufferMemory", body<PFN_vkBindBufferMemory>(bindBuffer)},
      {"vkCreateImage", body<PFN_vkCreateImage>(createImage)},
      {"vkDestroyImage", body<PFN_vkDestroyImage>(destroyImage)},
      {"vkGetImageMemoryRequirements", body<PFN_vkGetImageMemoryRequirements>(getImageRequirements)},
      {"vkBindImageMemory", succeed<PFN_vkBindImageMemory>()},
      {"vkCreateImageView", make<PFN_vkCreateImageView>()},
      {"vkDestroyImageView", succeed<PFN_vkDestroyImageView>()},
      {"vkCreateSampler", make<PFN_vkCreateSampler>()},
      {"vkDestroySampler", succeed<PFN_vkDestroySampler>()},

      {"vkCreateShaderModule", make<PFN_vkCreateShaderModule>()},
      {"vkDestroyShaderModule", succeed<PFN_vkDestroyShaderModule>()},
      {"vkCreatePipelineLayout", make<PFN_vkCreatePipelineLayout>()},
      {"vkDestroyPipelineLayout", succeed<PFN_vkDestroyPipelineLayout>()},
      {"vkCreateGraphicsPipelines",
       body<PFN_vkCreateGraphicsPipelines>(makePipelines<VkGraphicsPipelineCreateInfo>)},
      {"vkCreateComputePipelines",
       body<PFN_vkCreateComputePipelines>(makePipelines<VkComputePipelineCreateInfo>)},
      {"vkDestroyPipeline", succeed<PFN_vkDestroyPipeline>()},
      {"vkCreateRenderPass", make<PFN_vkCreateRenderPass>()},
      {"vkDestroyRenderPass", succeed<PFN_vkDestroyRenderPass>()},
      {"vkCreateFramebuffer", make<PFN_vkCreateFramebuffer>()},
      {"vkDestroyFramebuffer", succeed<PFN_vkDestroyFramebuffer>()},
      {"vkCreateDescriptorSetLayout", make<PFN_vkCreateDescriptorSetLayout>()},
      {"vkDestroyDescriptorSetLayout", succeed<PFN_vkDestroyDescriptorSetLayout>()},
      {"vkCreateDescriptorPool", make<PFN_vkCreateDescriptorPool>()},
      {"vkDestroyDescriptorPool", succeed<PFN_vkDestroyDescriptorPool>()},
      {"vkResetDescriptorPool", succeed<PFN_vkResetDescriptorPool>()},
      {"vkAllocateDescriptorSets", body<PFN_vkAllocateDescriptorSets>(allocateSets)},
      {"vkFreeDescriptorSets", succeed<PFN_vkFreeDescriptorSets>()},
      {"vkUpdateDescriptorSets", succeed<PFN_vkUpdateDescriptorSets>()},
  };
}

Functions commandFunctions() {
  return {
      {"vkCreateCommandPool", body<PFN_vkCreateCommandPool>(createCommandPool)},
      {"vkDestroyCommandPool", body<PFN_vkDestroyCommandPool>(destroyCommandPool)},
      {"vkResetCommandPool", succeed<PFN_vkResetCommandPool>()},
      {"vkAllocateCommandBuffers", body<PFN_vkAllocateCommandBuffers>(allocateCommandBuffers)},
      {"vkFreeCommandBuffers", succeed<PFN_vkFreeCommandBuffers>()},
      {"vkBeginCommandBuffer", succeed<PFN_vkBeginCommandBuffer>()},
      {"vkEndCommandBuffer", succeed<PFN_vkEndCommandBuffer>()},
      {"vkResetCommandBuffer", succeed<PFN_vkResetCommandBuffer>()},
      {"vkCmdPipelineBarrier", record<PFN_vkCmdPipelineBarrier>()},
      {"vkCmdCopyBuffer", record<PFN_vkCmdCopyBuffer>()},
      {"vkCmdCopyBufferToImage", body<PFN_vkCmdCopyBufferToImage>(copyBufferToImage)},
      {"vkCmdCopyImage", record<PFN_vkCmdCopyImage>()},
      {"vkCmdCopyImageToBuffer", record<PFN_vkCmdCopyImageToBuffer>()},
      {"vkCmdBlitImage", record<PFN_vkCmdBlitImage>()},
      {"vkCmdClearColorImage", record<PFN_vkCmdClearColorImage>()},
      {"vkCmdBeginRenderPass", record<PFN_vkCmdBeginRenderPass>()},
      {"vkCmdEndRenderPass", record<PFN_vkCmdEndRenderPass>()},
      {"vkCmdSetViewport", record<PFN_vkCmdSetViewport>()},
      {"vkCmdSetScissor", record<PFN_vkCmdSetScissor>()},
      {"vkCmdBindPipeline", record<PFN_vkCmdBindPipeline>()},
      {"vkCmdBindDescriptorSets", record<PFN_vkCmdBindDescriptorSets>()},
      {"vkCmdBindVertexBuffers", record<PFN_vkCmdBindVertexBuffers>()},
      {"vkCmdPushConstants", record<PFN_vkCmdPushConstants>()},
      {"vkCmdDispatch", record<PFN_vkCmdDispatch>()},
      {"vkCmdDraw", draw<PFN_vkCmdDraw>()},
  };
}

PFN_vkVoidFunction find(std::string_view name) {
  static const Functions all = [] {
    Functions found = instanceFunctions();
    found.merge(deviceFunctions());
    found.merge(commandFunctions());
    return found;
  }();
  const auto function = all.find(name);
  return function == all.end() ? nullptr : function->second;
}

}  // namespace

// What the loader looks for, and the benchmarks.
extern "C" {

VKAPI_ATTR VkResult VKAPI_CALL vk_icdNegotiateLoaderICDInterfaceVersion(std::uint32_t* version) {
  *version = std::min<std::uint32_t>(*version, 5);
  return VK_SUCCESS;
}

VKAPI_ATTR PFN_vkVoidFunction VKAPI_CALL vk_icdGetInstanceProcAddr(VkInstance, const char* name) {
  return find(name);
}

NoOpVulkanCounts* qelNoOpVulkanCounts() { return &counts(); }

}  // extern "C"
