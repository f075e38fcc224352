#include "DirectBlur.h"

#include <cmath>

namespace QelUtilVideo {

namespace {

// The kernel's code, from where it is compiled to.
#include "directBlur_comp.h"

struct Kernel {
  std::array<std::int32_t, 2> direction{};
  std::int32_t reach = 0;
  float sigma = 0;
};

}  // namespace

DirectBlur::DirectBlur(std::uint32_t width, std::uint32_t height) : width_(width), height_(height) {
  for (MinimalImage& picture : pictures_) {
    picture = device_.makeImage(width_, height_, VK_FORMAT_R8G8B8A8_UNORM,
                                VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_STORAGE_BIT |
                                    VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT);
  }
  makePipeline();
  makeSets();
  VkCommandBuffer commands = device_.begin();
  for (const MinimalImage& picture : pictures_) {
    device_.barrier(picture.image, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_GENERAL,
                    VK_PIPELINE_STAGE_TOP_OF_PIPE_BIT, 0, VK_PIPELINE_STAGE_TRANSFER_BIT,
                    VK_ACCESS_TRANSFER_WRITE_BIT);
    constexpr VkClearColorValue grey{{0.5F, 0.25F, 0.75F, 1}};
    constexpr VkImageSubresourceRange all{VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
    vkCmdClearColorImage(commands, picture.image, VK_IMAGE_LAYOUT_GENERAL, &grey, 1, &all);
  }
  device_.send();
  device_.wait();
}

void DirectBlur::makePipeline() {
  VkDevice device = device_.device();
  auto sampler = typed<VkSamplerCreateInfo>(VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO);
  must(vkCreateSampler(device, &sampler, nullptr, &sampler_));
  constexpr std::array<VkDescriptorSetLayoutBinding, 2> bindings{
      {{0, VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr},
       {1, VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr}}};
  auto set = typed<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
  set.bindingCount = bindings.size();
  set.pBindings = bindings.data();
  must(vkCreateDescriptorSetLayout(device, &set, nullptr, &setLayout_));
  constexpr VkPushConstantRange constants{VK_SHADER_STAGE_COMPUTE_BIT, 0, sizeof(Kernel)};
  auto layout = typed<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
  layout.setLayoutCount = layout.pushConstantRangeCount = 1;
  layout.pSetLayouts = &setLayout_;
  layout.pPushConstantRanges = &constants;
  must(vkCreatePipelineLayout(device, &layout, nullptr, &layout_));
  VkShaderModule module = device_.makeModule(directBlur_comp);
  auto info = typed<VkComputePipelineCreateInfo>(VK_STRUCTURE_TYPE_COMPUTE_PIPELINE_CREATE_INFO);
  info.stage = typed<VkPipelineShaderStageCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO);
  info.stage.stage = VK_SHADER_STAGE_COMPUTE_BIT;
  info.stage.module = module;
  info.stage.pName = "main";
  info.layout = layout_;
  must(vkCreateComputePipelines(device, VK_NULL_HANDLE, 1, &info, nullptr, &pipeline_));
  vkDestroyShaderModule(device, module, nullptr);
}

void DirectBlur::makeSets() {
  VkDevice device = device_.device();
  constexpr std::array<VkDescriptorPoolSize, 2> sizes{
      {{VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 2}, {VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, 2}}};
  auto pool = typed<VkDescriptorPoolCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO);
  pool.maxSets = 2;
  pool.poolSizeCount = sizes.size();
  pool.pPoolSizes = sizes.data();
  must(vkCreateDescriptorPool(device, &pool, nullptr, &pool_));
  const std::array layouts{setLayout_, setLayout_};
  auto sets = typed<VkDescriptorSetAllocateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO);
  sets.descriptorPool = pool_;
  sets.descriptorSetCount = layouts.size();
  sets.pSetLayouts = layouts.data();
  must(vkAllocateDescriptorSets(device, &sets, sets_.data()));
  for (std::size_t i = 0; i < sets_.size(); ++i) {
    const VkDescriptorImageInfo read{sampler_, pictures_[i].view, VK_IMAGE_LAYOUT_GENERAL};
    const VkDescriptorImageInfo written{VK_NULL_HANDLE, pictures_[1 - i].view, VK_IMAGE_LAYOUT_GENERAL};
    std::array<VkWriteDescriptorSet, 2> writes{};
    for (std::uint32_t binding = 0; binding < writes.size(); ++binding) {
      writes[binding] = typed<VkWriteDescriptorSet>(VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET);
      writes[binding].dstSet = sets_[i];
      writes[binding].dstBinding = binding;
      writes[binding].descriptorCount = 1;
      writes[binding].descriptorType =
          binding == 0 ? VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER : VK_DESCRIPTOR_TYPE_STORAGE_IMAGE;
      writes[binding].pImageInfo = binding == 0 ? &read : &written;
    }
    vkUpdateDescriptorSets(device, writes.size(), writes.data(), 0, nullptr);
  }
}

DirectBlur::~DirectBlur() {
  device_.wait();
  VkDevice device = device_.device();
  vkDestroyDescriptorPool(device, pool_, nullptr);
  vkDestroyPipeline(device, pipeline_, nullptr);
  vkDestroyPipelineLayout(device, layout_, nullptr);
  vkDestroyDescriptorSetLayout(device, setLayout_, nullptr);
  vkDestroySampler(device, sampler_, nullptr);
  for (const MinimalImage& picture : pictures_) device_.destroy(picture);
}

void DirectBlur::blur(float sigma) {
  VkCommandBuffer commands = device_.begin();
  vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_COMPUTE, pipeline_);
  pass(commands, 0, sigma);
  pass(commands, 1, sigma);
  device_.send();
}

void DirectBlur::pass(VkCommandBuffer commands, std::uint32_t number, float sigma) {
  constexpr VkPipelineStageFlags all = VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT | VK_PIPELINE_STAGE_TRANSFER_BIT;
  for (const MinimalImage& picture : pictures_) {
    device_.barrier(picture.image, VK_IMAGE_LAYOUT_GENERAL, VK_IMAGE_LAYOUT_GENERAL, all,
                    VK_ACCESS_SHADER_WRITE_BIT | VK_ACCESS_TRANSFER_WRITE_BIT,
                    VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT,
                    VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_SHADER_WRITE_BIT);
  }
  Kernel kernel;
  kernel.direction[number] = 1;
  kernel.reach = static_cast<std::int32_t>(sigma * std::sqrt(2 * std::log(1024.0F)));
  kernel.sigma = sigma;
  vkCmdPushConstants(commands, layout_, VK_SHADER_STAGE_COMPUTE_BIT, 0, sizeof kernel, &kernel);
  vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_COMPUTE, layout_, 0, 1, &sets_[number], 0,
                          nullptr);
  vkCmdDispatch(commands, (width_ + 31) / 32, (height_ + 7) / 8, 1);
}

void DirectBlur::copy() {
  VkCommandBuffer commands = device_.begin();
  VkImageCopy all{};
  all.srcSubresource = all.dstSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  all.extent = {width_, height_, 1};
  vkCmdCopyImage(commands, pictures_[0].image, VK_IMAGE_LAYOUT_GENERAL, pictures_[1].image,
                 VK_IMAGE_LAYOUT_GENERAL, 1, &all);
  device_.send();
}

}  // namespace QelUtilVideo
