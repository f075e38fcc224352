#include "MinimalDraw.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace QelUtilVideo {

namespace {

// The shaders' code, from where they are compiled to.
#include "minimalDraw_frag.h"
#include "minimalDraw_vert.h"

}  // namespace

struct MinimalDraw::Objects {
  MinimalImage luma, chroma, target;
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
};

MinimalDraw::MinimalDraw(std::uint32_t width, std::uint32_t height)
    : width_(width), height_(height), made_(std::make_unique<Objects>()) {
  makePictures();
  makePipeline();
}

void MinimalDraw::makePictures() {
  constexpr VkImageUsageFlags read = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
  made_->luma = device_.makeImage(width_, height_, VK_FORMAT_R8_UNORM, read);
  made_->chroma = device_.makeImage(width_ / 2, height_ / 2, VK_FORMAT_R8G8_UNORM, read);
  made_->target = device_.makeImage(width_, height_, VK_FORMAT_B8G8R8A8_UNORM,
                                    VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT);
  auto info = typed<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
  info.size = VkDeviceSize{width_} * height_ * 3 / 2;
  info.usage = VK_BUFFER_USAGE_TRANSFER_SRC_BIT;
  must(vkCreateBuffer(device_.device(), &info, nullptr, &made_->staging));
  VkMemoryRequirements needs{};
  vkGetBufferMemoryRequirements(device_.device(), made_->staging, &needs);
  made_->stagingMemory =
      device_.allocate(needs, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT);
  must(vkBindBufferMemory(device_.device(), made_->staging, made_->stagingMemory, 0));
  void* bytes = nullptr;
  must(vkMapMemory(device_.device(), made_->stagingMemory, 0, VK_WHOLE_SIZE, 0, &bytes));
  made_->bytes = static_cast<std::byte*>(bytes);
}

void MinimalDraw::makePipeline() {
  VkDevice device = device_.device();
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

  const std::array modules{device_.makeModule(minimalDraw_vert), device_.makeModule(minimalDraw_frag)};
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

MinimalDraw::~MinimalDraw() {
  device_.wait();
  VkDevice device = device_.device();
  vkDestroyPipeline(device, made_->pipeline, nullptr);
  vkDestroyPipelineLayout(device, made_->layout, nullptr);
  vkDestroyDescriptorPool(device, made_->sets, nullptr);
  vkDestroyDescriptorSetLayout(device, made_->setLayout, nullptr);
  vkDestroySampler(device, made_->sampler, nullptr);
  vkDestroyFramebuffer(device, made_->framebuffer, nullptr);
  vkDestroyRenderPass(device, made_->pass, nullptr);
  vkDestroyBuffer(device, made_->staging, nullptr);
  vkFreeMemory(device, made_->stagingMemory, nullptr);
  for (const MinimalImage& image : {made_->luma, made_->chroma, made_->target}) device_.destroy(image);
}

void MinimalDraw::upload(VkCommandBuffer commands, const MinimalImage& image, VkDeviceSize offset) {
  device_.barrier(image.image, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
                  VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, 0, VK_PIPELINE_STAGE_TRANSFER_BIT,
                  VK_ACCESS_TRANSFER_WRITE_BIT);
  VkBufferImageCopy region{};
  region.bufferOffset = offset;
  region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  region.imageExtent = {image.width, image.height, 1};
  vkCmdCopyBufferToImage(commands, made_->staging, image.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1,
                         &region);
  device_.barrier(image.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL,
                  VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT,
                  VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, VK_ACCESS_SHADER_READ_BIT);
}

void MinimalDraw::draw(const CVPixelBuffer* frame) {
  VkCommandBuffer commands = device_.begin();
  if (frame) {
    const std::size_t luma = std::size_t{width_} * height_;
    std::memcpy(made_->bytes, frame->planes()[0].baseAddress, luma);
    std::memcpy(made_->bytes + luma, frame->planes()[1].baseAddress, luma / 2);
    upload(commands, made_->luma, 0);
    upload(commands, made_->chroma, luma);
  }
  constexpr VkClearValue clear{};
  auto pass = typed<VkRenderPassBeginInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO);
  pass.renderPass = made_->pass;
  pass.framebuffer = made_->framebuffer;
  pass.renderArea.extent = {width_, height_};
  pass.clearValueCount = 1;
  pass.pClearValues = &clear;
  vkCmdBeginRenderPass(commands, &pass, VK_SUBPASS_CONTENTS_INLINE);
  vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, made_->pipeline);
  vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, made_->layout, 0, 1, &made_->set, 0,
                          nullptr);
  vkCmdDraw(commands, 3, 1, 0, 0);
  vkCmdEndRenderPass(commands);
  device_.send();
}

}  // namespace QelUtilVideo
