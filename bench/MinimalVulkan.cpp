#include "MinimalVulkan.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace QelUtilVideo {

namespace {

// The shaders' code, from where they are compiled to.
#include "minimal_frag.h"
#include "minimal_vert.h"

void must(VkResult result) {
  if (result == VK_SUCCESS) return;
  std::fprintf(stderr, "the minimal program failed: %d\n", static_cast<int>(result));
  std::abort();
}

template <class T>
T typed(VkStructureType type) {
  T made{};
  made.sType = type;
  return made;
}

void barrier(VkCommandBuffer commands, VkImage image, VkImageLayout from, VkImageLayout to,
             VkPipelineStageFlags before, VkAccessFlags written, VkPipelineStageFlags after,
             VkAccessFlags read) {
  auto made = typed<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
  made.srcAccessMask = written;
  made.dstAccessMask = read;
  made.oldLayout = from;
  made.newLayout = to;
  made.srcQueueFamilyIndex = made.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
  made.image = image;
  made.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  vkCmdPipelineBarrier(commands, before, after, 0, 0, nullptr, 0, nullptr, 1, &made);
}

}  // namespace

struct MinimalVulkan::Image {
  std::uint32_t width = 0, height = 0;
  VkImage image = VK_NULL_HANDLE;
  VkDeviceMemory memory = VK_NULL_HANDLE;
  VkImageView view = VK_NULL_HANDLE;
};

struct MinimalVulkan::Objects {
  VkInstance instance = VK_NULL_HANDLE;
  VkPhysicalDevice physical = VK_NULL_HANDLE;
  VkDevice device = VK_NULL_HANDLE;
  VkQueue queue = VK_NULL_HANDLE;
  Image luma, chroma, target;
  VkBuffer staging = VK_NULL_HANDLE;
  VkDeviceMemory stagingMemory = VK_NULL_HANDLE;
  std::byte* bytes = nullptr;
  VkRenderPass pass = VK_NULL_HANDLE;
  VkFramebuffer framebuffer = VK_NULL_HANDLE;
  VkSampler sampler = VK_NULL_HANDLE;
  VkDescriptorSetLayout setLayout = VK_NULL_HANDLE;
  VkDescriptorPool sets = VK_NULL_HANDLE;
  VkDescriptorSet set = VK_NULL_HANDLE;
  VkPipelineLayout layout = VK_NULL_HANDLE;
  VkPipeline pipeline = VK_NULL_HANDLE;
  VkCommandPool pool = VK_NULL_HANDLE;
  VkCommandBuffer commands = VK_NULL_HANDLE;
  VkFence done = VK_NULL_HANDLE;
};

MinimalVulkan::MinimalVulkan(std::uint32_t width, std::uint32_t height)
    : width_(width), height_(height), made_(std::make_unique<Objects>()) {
  makeDevice();
  makePictures();
  makePipeline();
  makeCommands();
}

void MinimalVulkan::makeDevice() {
  auto application = typed<VkApplicationInfo>(VK_STRUCTURE_TYPE_APPLICATION_INFO);
  application.apiVersion = VK_API_VERSION_1_1;
  auto instance = typed<VkInstanceCreateInfo>(VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO);
  instance.pApplicationInfo = &application;
  must(vkCreateInstance(&instance, nullptr, &made_->instance));
  std::uint32_t count = 1;
  // More than one is no failure.
  (void)vkEnumeratePhysicalDevices(made_->instance, &count, &made_->physical);
  constexpr float priority = 1;
  auto queue = typed<VkDeviceQueueCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO);
  queue.queueCount = 1;
  queue.pQueuePriorities = &priority;
  auto device = typed<VkDeviceCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO);
  device.queueCreateInfoCount = 1;
  device.pQueueCreateInfos = &queue;
  must(vkCreateDevice(made_->physical, &device, nullptr, &made_->device));
  vkGetDeviceQueue(made_->device, 0, 0, &made_->queue);
}

VkDeviceMemory MinimalVulkan::allocate(const VkMemoryRequirements& needs, VkMemoryPropertyFlags properties) {
  VkPhysicalDeviceMemoryProperties has{};
  vkGetPhysicalDeviceMemoryProperties(made_->physical, &has);
  auto info = typed<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
  info.allocationSize = needs.size;
  const auto fits = [&](std::uint32_t type) {
    return (needs.memoryTypeBits >> type & 1U) != 0 &&
           (has.memoryTypes[type].propertyFlags & properties) == properties;
  };
  while (info.memoryTypeIndex < has.memoryTypeCount && !fits(info.memoryTypeIndex)) ++info.memoryTypeIndex;
  VkDeviceMemory memory = VK_NULL_HANDLE;
  must(vkAllocateMemory(made_->device, &info, nullptr, &memory));
  return memory;
}

MinimalVulkan::Image MinimalVulkan::makeImage(std::uint32_t divisor, VkFormat format,
                                              VkImageUsageFlags usage) {
  Image made{width_ / divisor, height_ / divisor};
  auto info = typed<VkImageCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO);
  info.imageType = VK_IMAGE_TYPE_2D;
  info.format = format;
  info.extent = {made.width, made.height, 1};
  info.mipLevels = info.arrayLayers = 1;
  info.samples = VK_SAMPLE_COUNT_1_BIT;
  info.usage = usage;
  must(vkCreateImage(made_->device, &info, nullptr, &made.image));
  VkMemoryRequirements needs{};
  vkGetImageMemoryRequirements(made_->device, made.image, &needs);
  made.memory = allocate(needs, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT);
  must(vkBindImageMemory(made_->device, made.image, made.memory, 0));
  auto view = typed<VkImageViewCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO);
  view.image = made.image;
  view.viewType = VK_IMAGE_VIEW_TYPE_2D;
  view.format = format;
  view.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  must(vkCreateImageView(made_->device, &view, nullptr, &made.view));
  return made;
}

void MinimalVulkan::makePictures() {
  constexpr VkImageUsageFlags read = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
  made_->luma = makeImage(1, VK_FORMAT_R8_UNORM, read);
  made_->chroma = makeImage(2, VK_FORMAT_R8G8_UNORM, read);
  made_->target = makeImage(1, VK_FORMAT_B8G8R8A8_UNORM,
                            VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT);
  auto info = typed<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
  info.size = VkDeviceSize{width_} * height_ * 3 / 2;
  info.usage = VK_BUFFER_USAGE_TRANSFER_SRC_BIT;
  must(vkCreateBuffer(made_->device, &info, nullptr, &made_->staging));
  VkMemoryRequirements needs{};
  vkGetBufferMemoryRequirements(made_->device, made_->staging, &needs);
  made_->stagingMemory =
      allocate(needs, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT);
  must(vkBindBufferMemory(made_->device, made_->staging, made_->stagingMemory, 0));
  void* bytes = nullptr;
  must(vkMapMemory(made_->device, made_->stagingMemory, 0, VK_WHOLE_SIZE, 0, &bytes));
  made_->bytes = static_cast<std::byte*>(bytes);
}

VkShaderModule MinimalVulkan::makeModule(const std::uint32_t* words, std::size_t size) {
  auto info = typed<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
  info.codeSize = size;
  info.pCode = words;
  VkShaderModule module = VK_NULL_HANDLE;
  must(vkCreateShaderModule(made_->device, &info, nullptr, &module));
  return module;
}

void MinimalVulkan::makePipeline() {
  VkDevice device = made_->device;
  VkAttachmentDescription attachment{};
  attachment.format = VK_FORMAT_B8G8R8A8_UNORM;
  attachment.samples = VK_SAMPLE_COUNT_1_BIT;
  attachment.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
  attachment.storeOp = VK_ATTACHMENT_STORE_OP_STORE;
  attachment.stencilLoadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE;
  attachment.stencilStoreOp = VK_ATTACHMENT_STORE_OP_DONT_CARE;
  attachment.finalLayout = VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL;
  constexpr VkAttachmentReference color{0, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL};
  VkSubpassDescription subpass{};
  subpass.pipelineBindPoint = VK_PIPELINE_BIND_POINT_GRAPHICS;
  subpass.colorAttachmentCount = 1;
  subpass.pColorAttachments = &color;
  auto pass = typed<VkRenderPassCreateInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_CREATE_INFO);
  pass.attachmentCount = 1;
  pass.pAttachments = &attachment;
  pass.subpassCount = 1;
  pass.pSubpasses = &subpass;
  must(vkCreateRenderPass(device, &pass, nullptr, &made_->pass));
  auto frame = typed<VkFramebufferCreateInfo>(VK_STRUCTURE_TYPE_FRAMEBUFFER_CREATE_INFO);
  frame.renderPass = made_->pass;
  frame.attachmentCount = 1;
  frame.pAttachments = &made_->target.view;
  frame.width = width_;
  frame.height = height_;
  frame.layers = 1;
  must(vkCreateFramebuffer(device, &frame, nullptr, &made_->framebuffer));

  auto sampler = typed<VkSamplerCreateInfo>(VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO);
  sampler.magFilter = sampler.minFilter = VK_FILTER_LINEAR;
  sampler.addressModeU = sampler.addressModeV = VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
  must(vkCreateSampler(device, &sampler, nullptr, &made_->sampler));
  std::array<VkDescriptorSetLayoutBinding, 2> bindings{};
  for (std::uint32_t i = 0; i < bindings.size(); ++i) {
    bindings[i] = {i, VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1, VK_SHADER_STAGE_FRAGMENT_BIT, nullptr};
  }
  auto setLayout =
      typed<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
  setLayout.bindingCount = bindings.size();
  setLayout.pBindings = bindings.data();
  must(vkCreateDescriptorSetLayout(device, &setLayout, nullptr, &made_->setLayout));
  constexpr VkDescriptorPoolSize size{VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 2};
  auto pool = typed<VkDescriptorPoolCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO);
  pool.maxSets = pool.poolSizeCount = 1;
  pool.pPoolSizes = &size;
  must(vkCreateDescriptorPool(device, &pool, nullptr, &made_->sets));
  auto set = typed<VkDescriptorSetAllocateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO);
  set.descriptorPool = made_->sets;
  set.descriptorSetCount = 1;
  set.pSetLayouts = &made_->setLayout;
  must(vkAllocateDescriptorSets(device, &set, &made_->set));
  for (std::uint32_t i = 0; i < 2; ++i) {
    const VkDescriptorImageInfo image{made_->sampler, i == 0 ? made_->luma.view : made_->chroma.view,
                                      VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL};
    auto write = typed<VkWriteDescriptorSet>(VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET);
    write.dstSet = made_->set;
    write.dstBinding = i;
    write.descriptorCount = 1;
    write.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    write.pImageInfo = &image;
    vkUpdateDescriptorSets(device, 1, &write, 0, nullptr);
  }
  auto layout = typed<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
  layout.setLayoutCount = 1;
  layout.pSetLayouts = &made_->setLayout;
  must(vkCreatePipelineLayout(device, &layout, nullptr, &made_->layout));

  const std::array modules{makeModule(minimal_vert, sizeof minimal_vert),
                           makeModule(minimal_frag, sizeof minimal_frag)};
  std::array<VkPipelineShaderStageCreateInfo, 2> stages{};
  for (std::size_t i = 0; i < stages.size(); ++i) {
    stages[i] = typed<VkPipelineShaderStageCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO);
    stages[i].stage = i == 0 ? VK_SHADER_STAGE_VERTEX_BIT : VK_SHADER_STAGE_FRAGMENT_BIT;
    stages[i].module = modules[i];
    stages[i].pName = "main";
  }
  const auto vertices =
      typed<VkPipelineVertexInputStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO);
  auto assembly = typed<VkPipelineInputAssemblyStateCreateInfo>(
      VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO);
  assembly.topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST;
  const VkViewport viewport{0, 0, static_cast<float>(width_), static_cast<float>(height_), 0, 1};
  const VkRect2D scissor{{0, 0}, {width_, height_}};
  auto view = typed<VkPipelineViewportStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO);
  view.viewportCount = view.scissorCount = 1;
  view.pViewports = &viewport;
  view.pScissors = &scissor;
  auto raster = typed<VkPipelineRasterizationStateCreateInfo>(
      VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO);
  raster.lineWidth = 1;
  auto samples =
      typed<VkPipelineMultisampleStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO);
  samples.rasterizationSamples = VK_SAMPLE_COUNT_1_BIT;
  VkPipelineColorBlendAttachmentState plain{};
  plain.colorWriteMask = 0xF;
  auto blend =
      typed<VkPipelineColorBlendStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO);
  blend.attachmentCount = 1;
  blend.pAttachments = &plain;
  auto pipeline = typed<VkGraphicsPipelineCreateInfo>(VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO);
  pipeline.stageCount = stages.size();
  pipeline.pStages = stages.data();
  pipeline.pVertexInputState = &vertices;
  pipeline.pInputAssemblyState = &assembly;
  pipeline.pViewportState = &view;
  pipeline.pRasterizationState = &raster;
  pipeline.pMultisampleState = &samples;
  pipeline.pColorBlendState = &blend;
  pipeline.layout = made_->layout;
  pipeline.renderPass = made_->pass;
  must(vkCreateGraphicsPipelines(device, VK_NULL_HANDLE, 1, &pipeline, nullptr, &made_->pipeline));
  for (VkShaderModule module : modules) vkDestroyShaderModule(device, module, nullptr);
}

void MinimalVulkan::makeCommands() {
  auto pool = typed<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
  must(vkCreateCommandPool(made_->device, &pool, nullptr, &made_->pool));
  auto commands = typed<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
  commands.commandPool = made_->pool;
  commands.commandBufferCount = 1;
  must(vkAllocateCommandBuffers(made_->device, &commands, &made_->commands));
  auto fence = typed<VkFenceCreateInfo>(VK_STRUCTURE_TYPE_FENCE_CREATE_INFO);
  fence.flags = VK_FENCE_CREATE_SIGNALED_BIT;
  must(vkCreateFence(made_->device, &fence, nullptr, &made_->done));
}

MinimalVulkan::~MinimalVulkan() {
  wait();
  VkDevice device = made_->device;
  vkDestroyFence(device, made_->done, nullptr);
  vkDestroyCommandPool(device, made_->pool, nullptr);
  vkDestroyPipeline(device, made_->pipeline, nullptr);
  vkDestroyPipelineLayout(device, made_->layout, nullptr);
  vkDestroyDescriptorPool(device, made_->sets, nullptr);
  vkDestroyDescriptorSetLayout(device, made_->setLayout, nullptr);
  vkDestroySampler(device, made_->sampler, nullptr);
  vkDestroyFramebuffer(device, made_->framebuffer, nullptr);
  vkDestroyRenderPass(device, made_->pass, nullptr);
  vkDestroyBuffer(device, made_->staging, nullptr);
  vkFreeMemory(device, made_->stagingMemory, nullptr);
  for (const Image& image : {made_->luma, made_->chroma, made_->target}) {
    vkDestroyImageView(device, image.view, nullptr);
    vkDestroyImage(device, image.image, nullptr);
    vkFreeMemory(device, image.memory, nullptr);
  }
  vkDestroyDevice(device, nullptr);
  vkDestroyInstance(made_->instance, nullptr);
}

void MinimalVulkan::upload(const Image& image, VkDeviceSize offset) {
  barrier(made_->commands, image.image, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
          VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, 0, VK_PIPELINE_STAGE_TRANSFER_BIT,
          VK_ACCESS_TRANSFER_WRITE_BIT);
  VkBufferImageCopy region{};
  region.bufferOffset = offset;
  region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  region.imageExtent = {image.width, image.height, 1};
  vkCmdCopyBufferToImage(made_->commands, made_->staging, image.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
                         1, &region);
  barrier(made_->commands, image.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
          VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL, VK_PIPELINE_STAGE_TRANSFER_BIT,
          VK_ACCESS_TRANSFER_WRITE_BIT, VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, VK_ACCESS_SHADER_READ_BIT);
}

void MinimalVulkan::draw(const CVPixelBuffer* frame) {
  wait();
  must(vkResetFences(made_->device, 1, &made_->done));
  must(vkResetCommandPool(made_->device, made_->pool, 0));
  auto begin = typed<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
  begin.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
  must(vkBeginCommandBuffer(made_->commands, &begin));
  if (frame) {
    const std::size_t luma = std::size_t{width_} * height_;
    std::memcpy(made_->bytes, frame->planes()[0].baseAddress, luma);
    std::memcpy(made_->bytes + luma, frame->planes()[1].baseAddress, luma / 2);
    upload(made_->luma, 0);
    upload(made_->chroma, luma);
  }
  constexpr VkClearValue clear{};
  auto pass = typed<VkRenderPassBeginInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO);
  pass.renderPass = made_->pass;
  pass.framebuffer = made_->framebuffer;
  pass.renderArea.extent = {width_, height_};
  pass.clearValueCount = 1;
  pass.pClearValues = &clear;
  vkCmdBeginRenderPass(made_->commands, &pass, VK_SUBPASS_CONTENTS_INLINE);
  vkCmdBindPipeline(made_->commands, VK_PIPELINE_BIND_POINT_GRAPHICS, made_->pipeline);
  vkCmdBindDescriptorSets(made_->commands, VK_PIPELINE_BIND_POINT_GRAPHICS, made_->layout, 0, 1, &made_->set,
                          0, nullptr);
  vkCmdDraw(made_->commands, 3, 1, 0, 0);
  vkCmdEndRenderPass(made_->commands);
  must(vkEndCommandBuffer(made_->commands));
  auto submit = typed<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
  submit.commandBufferCount = 1;
  submit.pCommandBuffers = &made_->commands;
  must(vkQueueSubmit(made_->queue, 1, &submit, made_->done));
}

float MinimalVulkan::timestampPeriod() const {
  VkPhysicalDeviceProperties properties{};
  vkGetPhysicalDeviceProperties(made_->physical, &properties);
  return properties.limits.timestampPeriod;
}

void MinimalVulkan::wait() const {
  must(vkWaitForFences(made_->device, 1, &made_->done, VK_TRUE, ~std::uint64_t{}));
}

}  // namespace QelUtilVideo
