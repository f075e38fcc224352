#include "platform/linux/vulkan/Gpu.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <mutex>
#include <vector>

namespace QelUtilVideo {

namespace {

constexpr std::uint32_t kVersion = VK_API_VERSION_1_1;

bool hasInstanceExtension(const char* name) {
  std::uint32_t count = 0;
  vkEnumerateInstanceExtensionProperties(nullptr, &count, nullptr);
  std::vector<VkExtensionProperties> all(count);
  vkEnumerateInstanceExtensionProperties(nullptr, &count, all.data());
  return std::ranges::any_of(all,
                             [&](const auto& each) { return std::strcmp(each.extensionName, name) == 0; });
}

bool hasDeviceExtension(VkPhysicalDevice device, const char* name) {
  std::uint32_t count = 0;
  vkEnumerateDeviceExtensionProperties(device, nullptr, &count, nullptr);
  std::vector<VkExtensionProperties> all(count);
  vkEnumerateDeviceExtensionProperties(device, nullptr, &count, all.data());
  return std::ranges::any_of(all,
                             [&](const auto& each) { return std::strcmp(each.extensionName, name) == 0; });
}

/// Of memory of the process that buffers can lie in; 0 when they cannot.
VkDeviceSize findHostPointerAlignment(VkPhysicalDevice device) {
  if (!hasDeviceExtension(device, VK_EXT_EXTERNAL_MEMORY_HOST_EXTENSION_NAME)) return 0;
  auto buffers = vulkanStruct<VkPhysicalDeviceExternalBufferInfo>(
      VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_EXTERNAL_BUFFER_INFO);
  buffers.usage = VK_BUFFER_USAGE_TRANSFER_SRC_BIT;
  buffers.handleType = VK_EXTERNAL_MEMORY_HANDLE_TYPE_HOST_ALLOCATION_BIT_EXT;
  auto can = vulkanStruct<VkExternalBufferProperties>(VK_STRUCTURE_TYPE_EXTERNAL_BUFFER_PROPERTIES);
  vkGetPhysicalDeviceExternalBufferProperties(device, &buffers, &can);
  if (!(can.externalMemoryProperties.externalMemoryFeatures & VK_EXTERNAL_MEMORY_FEATURE_IMPORTABLE_BIT)) {
    return 0;
  }
  auto memory = vulkanStruct<VkPhysicalDeviceExternalMemoryHostPropertiesEXT>(
      VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_EXTERNAL_MEMORY_HOST_PROPERTIES_EXT);
  auto properties = vulkanStruct<VkPhysicalDeviceProperties2>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2);
  properties.pNext = &memory;
  vkGetPhysicalDeviceProperties2(device, &properties);
  return memory.minImportedHostPointerAlignment;
}

VKAPI_ATTR VkBool32 VKAPI_CALL report(VkDebugUtilsMessageSeverityFlagBitsEXT, VkDebugUtilsMessageTypeFlagsEXT,
                                      const VkDebugUtilsMessengerCallbackDataEXT* data, void* user) {
  const auto& trouble = *static_cast<const TroubleHandler*>(user);
  if (trouble) trouble(std::string("Vulkan: ") + data->pMessage);
  return VK_FALSE;
}

int rankOf(VkPhysicalDeviceType type) {
  switch (type) {
    case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU:
      return 0;
    case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU:
      return 1;
    case VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU:
      return 2;
    case VK_PHYSICAL_DEVICE_TYPE_CPU:
      return 3;
    default:
      return 4;
  }
}

/// Whether there is a loader. Any thread.
bool hasLoader() {
  static const bool isLoaded = volkInitialize() == VK_SUCCESS;
  return isLoaded;
}

/// The loader's functions, which find the driver by the object they are called with: they serve every
/// instance.
void loadFunctions(VkInstance instance) {
  static std::once_flag once;
  std::call_once(once, [=] { volkLoadInstance(instance); });
}

/// UINT32_MAX when the device has none that draws.
std::uint32_t drawingFamily(VkPhysicalDevice device) {
  std::uint32_t count = 0;
  vkGetPhysicalDeviceQueueFamilyProperties(device, &count, nullptr);
  std::vector<VkQueueFamilyProperties> families(count);
  vkGetPhysicalDeviceQueueFamilyProperties(device, &count, families.data());
  constexpr VkQueueFlags wanted = VK_QUEUE_GRAPHICS_BIT | VK_QUEUE_COMPUTE_BIT;
  const auto found = std::ranges::find_if(
      families, [](const auto& family) { return (family.queueFlags & wanted) == wanted; });
  return found == families.end() ? std::numeric_limits<std::uint32_t>::max()
                                 : static_cast<std::uint32_t>(found - families.begin());
}

}  // namespace

std::shared_ptr<Gpu> Gpu::open(TroubleHandler trouble) {
  if (!hasLoader() || volkGetInstanceVersion() < kVersion) return nullptr;
  std::shared_ptr<Gpu> gpu(new Gpu(std::move(trouble)));
  const bool isOpen = gpu->makeInstance() && gpu->chooseDevice() && gpu->makeDevice() && gpu->makeSampler() &&
                      gpu->makeLayouts() && gpu->makeRenderPass();
  return isOpen ? gpu : nullptr;
}

Gpu::~Gpu() {
  if (device_) vkDeviceWaitIdle(device_);
  renderPass_ = {};
  sampler_ = {};
  kernelLayout_ = {};
  kernelSetLayout_ = {};
  pipelineLayout_ = {};
  setLayout_ = {};
  if (device_) vkDestroyDevice(device_, nullptr);
  if (messenger_) vkDestroyDebugUtilsMessengerEXT(instance_, messenger_, nullptr);
  if (instance_) vkDestroyInstance(instance_, nullptr);
}

bool Gpu::makeInstance() {
  VkApplicationInfo application{
      VK_STRUCTURE_TYPE_APPLICATION_INFO, nullptr, "QelUtilVideo", 0, nullptr, 0, kVersion};
  std::vector<const char*> extensions;
  const bool canReport = hasInstanceExtension(VK_EXT_DEBUG_UTILS_EXTENSION_NAME);
  if (canReport) extensions.push_back(VK_EXT_DEBUG_UTILS_EXTENSION_NAME);
  canShow_ = hasInstanceExtension(VK_KHR_SURFACE_EXTENSION_NAME) &&
             hasInstanceExtension(VK_KHR_XCB_SURFACE_EXTENSION_NAME);
  if (canShow_) extensions.push_back(VK_KHR_SURFACE_EXTENSION_NAME);
  if (canShow_) extensions.push_back(VK_KHR_XCB_SURFACE_EXTENSION_NAME);
  auto info = vulkanStruct<VkInstanceCreateInfo>(VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO);
  info.pApplicationInfo = &application;
  info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
  info.ppEnabledExtensionNames = extensions.data();
  if (vkCreateInstance(&info, nullptr, &instance_) != VK_SUCCESS) return false;
  loadFunctions(instance_);
  if (!canReport) return true;
  auto messages = vulkanStruct<VkDebugUtilsMessengerCreateInfoEXT>(
      VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT);
  messages.messageSeverity =
      VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
  messages.messageType = VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT;
  messages.pfnUserCallback = report;
  messages.pUserData = const_cast<TroubleHandler*>(&trouble_);
  vkCreateDebugUtilsMessengerEXT(instance_, &messages, nullptr, &messenger_);
  return true;
}

bool Gpu::chooseDevice() {
  std::uint32_t count = 0;
  vkEnumeratePhysicalDevices(instance_, &count, nullptr);
  std::vector<VkPhysicalDevice> devices(count);
  if (vkEnumeratePhysicalDevices(instance_, &count, devices.data()) != VK_SUCCESS) return false;
  int best = std::numeric_limits<int>::max();
  for (VkPhysicalDevice device : devices) {
    VkPhysicalDeviceProperties properties{};
    vkGetPhysicalDeviceProperties(device, &properties);
    const std::uint32_t family = drawingFamily(device);
    if (properties.apiVersion < kVersion || family == std::numeric_limits<std::uint32_t>::max()) continue;
    if (rankOf(properties.deviceType) >= best) continue;
    best = rankOf(properties.deviceType);
    physicalDevice_ = device;
    queueFamily_ = family;
    properties_ = properties;
  }
  if (!physicalDevice_) return false;
  vkGetPhysicalDeviceMemoryProperties(physicalDevice_, &memory_);
  return true;
}

bool Gpu::makeDevice() {
  const float priority = 1;
  auto queue = vulkanStruct<VkDeviceQueueCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO);
  queue.queueFamilyIndex = queueFamily_;
  queue.queueCount = 1;
  queue.pQueuePriorities = &priority;
  auto info = vulkanStruct<VkDeviceCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO);
  info.queueCreateInfoCount = 1;
  info.pQueueCreateInfos = &queue;
  std::vector<const char*> extensions;
  canShow_ = canShow_ && hasDeviceExtension(physicalDevice_, VK_KHR_SWAPCHAIN_EXTENSION_NAME);
  if (canShow_) extensions.push_back(VK_KHR_SWAPCHAIN_EXTENSION_NAME);
  hostPointerAlignment_ = findHostPointerAlignment(physicalDevice_);
  if (hostPointerAlignment_ > 0) extensions.push_back(VK_EXT_EXTERNAL_MEMORY_HOST_EXTENSION_NAME);
  info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
  info.ppEnabledExtensionNames = extensions.data();
  if (vkCreateDevice(physicalDevice_, &info, nullptr, &device_) != VK_SUCCESS) return false;
  const MutexLock lock(queueMutex_);
  vkGetDeviceQueue(device_, queueFamily_, 0, &queue_);
  return true;
}

bool Gpu::makeSampler() {
  auto info = vulkanStruct<VkSamplerCreateInfo>(VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO);
  info.magFilter = info.minFilter = VK_FILTER_LINEAR;
  info.addressModeU = info.addressModeV = info.addressModeW = VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
  VkSampler sampler = VK_NULL_HANDLE;
  if (!check(vkCreateSampler(device_, &info, nullptr, &sampler), "vkCreateSampler")) return false;
  sampler_ = {device_, sampler, vkDestroySampler};
  return true;
}

bool Gpu::makeLayouts() {
  constexpr auto buffer = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER;
  constexpr auto texture = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
  constexpr auto result = VK_DESCRIPTOR_TYPE_STORAGE_IMAGE;
  constexpr VkShaderStageFlags fragment = VK_SHADER_STAGE_FRAGMENT_BIT, kernel = VK_SHADER_STAGE_COMPUTE_BIT;
  Layouts drawing = makeLayouts(
      std::array<VkDescriptorSetLayoutBinding, 3>{{{0, buffer, 1, VK_SHADER_STAGE_VERTEX_BIT, nullptr},
                                                   {1, texture, 1, fragment, nullptr},
                                                   {2, texture, 1, fragment, nullptr}}});
  setLayout_ = std::move(drawing.set);
  pipelineLayout_ = std::move(drawing.pipeline);
  Layouts computing =
      makeLayouts(std::array<VkDescriptorSetLayoutBinding, 7>{{{0, buffer, 1, kernel, nullptr},
                                                               {1, texture, 1, kernel, nullptr},
                                                               {2, texture, 1, kernel, nullptr},
                                                               {3, texture, 1, kernel, nullptr},
                                                               {4, result, 1, kernel, nullptr},
                                                               {5, result, 1, kernel, nullptr},
                                                               {6, result, 1, kernel, nullptr}}});
  kernelSetLayout_ = std::move(computing.set);
  kernelLayout_ = std::move(computing.pipeline);
  return pipelineLayout_ && kernelLayout_;
}

Gpu::Layouts Gpu::makeLayouts(std::span<const VkDescriptorSetLayoutBinding> bindings) {
  auto sets =
      vulkanStruct<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
  sets.bindingCount = static_cast<std::uint32_t>(bindings.size());
  sets.pBindings = bindings.data();
  VkDescriptorSetLayout set = VK_NULL_HANDLE;
  if (!check(vkCreateDescriptorSetLayout(device_, &sets, nullptr, &set), "vkCreateDescriptorSetLayout"))
    return {};
  Layouts made;
  made.set = {device_, set, vkDestroyDescriptorSetLayout};
  auto pipelines = vulkanStruct<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
  pipelines.setLayoutCount = 1;
  pipelines.pSetLayouts = &set;
  VkPipelineLayout pipeline = VK_NULL_HANDLE;
  if (check(vkCreatePipelineLayout(device_, &pipelines, nullptr, &pipeline), "vkCreatePipelineLayout")) {
    made.pipeline = {device_, pipeline, vkDestroyPipelineLayout};
  }
  return made;
}

bool Gpu::makeRenderPass() {
  VkAttachmentDescription attachment{};
  attachment.format = VK_FORMAT_B8G8R8A8_UNORM;
  attachment.samples = VK_SAMPLE_COUNT_1_BIT;
  attachment.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
  attachment.storeOp = VK_ATTACHMENT_STORE_OP_STORE;
  attachment.stencilLoadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE;
  attachment.stencilStoreOp = VK_ATTACHMENT_STORE_OP_DONT_CARE;
  attachment.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
  attachment.finalLayout = VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL;
  const VkAttachmentReference reference{0, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL};
  VkSubpassDescription subpass{};
  subpass.pipelineBindPoint = VK_PIPELINE_BIND_POINT_GRAPHICS;
  subpass.colorAttachmentCount = 1;
  subpass.pColorAttachments = &reference;
  // What was read of the picture before is over, and what is drawn is there for whoever copies it.
  const std::array<VkSubpassDependency, 2> dependencies{
      {{VK_SUBPASS_EXTERNAL, 0,
        VK_PIPELINE_STAGE_TRANSFER_BIT | VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT,
        VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, VK_ACCESS_TRANSFER_READ_BIT,
        VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT, 0},
       {0, VK_SUBPASS_EXTERNAL, VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT, VK_PIPELINE_STAGE_TRANSFER_BIT,
        VK_ACCESS_COLOR_ATTACHMENT_WRITE_BIT, VK_ACCESS_TRANSFER_READ_BIT, 0}}};
  auto passes = vulkanStruct<VkRenderPassCreateInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_CREATE_INFO);
  passes.attachmentCount = 1;
  passes.pAttachments = &attachment;
  passes.subpassCount = 1;
  passes.pSubpasses = &subpass;
  passes.dependencyCount = dependencies.size();
  passes.pDependencies = dependencies.data();
  VkRenderPass pass = VK_NULL_HANDLE;
  if (!check(vkCreateRenderPass(device_, &passes, nullptr, &pass), "vkCreateRenderPass")) return false;
  renderPass_ = {device_, pass, vkDestroyRenderPass};
  return true;
}

std::uint32_t Gpu::memoryType(std::uint32_t types, VkMemoryPropertyFlags properties) const {
  for (std::uint32_t i = 0; i < memory_.memoryTypeCount; ++i) {
    const bool fits = (types >> i & 1U) != 0;
    if (fits && (memory_.memoryTypes[i].propertyFlags & properties) == properties) return i;
  }
  return std::numeric_limits<std::uint32_t>::max();
}

VulkanHandle<VkDeviceMemory> Gpu::allocate(const VkMemoryRequirements& needs,
                                           VkMemoryPropertyFlags properties) {
  const std::uint32_t type = memoryType(needs.memoryTypeBits, properties);
  if (type == std::numeric_limits<std::uint32_t>::max()) return {};
  auto info = vulkanStruct<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
  info.allocationSize = needs.size;
  info.memoryTypeIndex = type;
  VkDeviceMemory memory = VK_NULL_HANDLE;
  if (!check(vkAllocateMemory(device_, &info, nullptr, &memory), "vkAllocateMemory")) return {};
  return {device_, memory, vkFreeMemory};
}

VkResult Gpu::submit(const VkSubmitInfo& work, VkFence done) {
  const MutexLock lock(queueMutex_);
  return vkQueueSubmit(queue_, 1, &work, done);
}

VkResult Gpu::present(const VkPresentInfoKHR& pictures) {
  const MutexLock lock(queueMutex_);
  return vkQueuePresentKHR(queue_, &pictures);
}

void Gpu::finish() {
  const MutexLock lock(queueMutex_);
  vkQueueWaitIdle(queue_);
}

bool Gpu::check(VkResult result, const char* what) {
  if (result == VK_SUCCESS) return true;
  if (result == VK_ERROR_DEVICE_LOST) isLost_ = true;
  if (trouble_) trouble_(std::string(what) + " fails: " + std::to_string(result));
  return false;
}

}  // namespace QelUtilVideo
