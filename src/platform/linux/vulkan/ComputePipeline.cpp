#include "platform/linux/vulkan/ComputePipeline.h"

#include <array>
#include <utility>

namespace QelUtilVideo {

namespace {

/// A bit for each binding that a shader declares.
std::uint32_t bindingsOf(const ShaderCode& code) {
  constexpr std::size_t headerWords = 5;
  constexpr std::uint32_t opDecorate = 71, binding = 33;
  std::uint32_t found = 0;
  for (std::size_t at = headerWords; at < code.size();) {
    const std::uint32_t operation = code[at] & 0xFFFF, words = code[at] >> 16;
    if (words == 0 || words > code.size() - at) break;
    if (operation == opDecorate && words == 4 && code[at + 2] == binding && code[at + 3] < 32) {
      found |= 1U << code[at + 3];
    }
    at += words;
  }
  return found;
}

}  // namespace

ComputePipeline::ComputePipeline(std::shared_ptr<Gpu> gpu, ShaderCode code, GroupShape shape)
    : code_(std::move(code)), shape_(shape), bindings_(bindingsOf(code_)), gpu_(std::move(gpu)) {}

std::shared_ptr<ComputePipeline> ComputePipeline::make(std::shared_ptr<Gpu> gpu, ShaderCode code,
                                                       GroupShape shape) {
  std::shared_ptr<ComputePipeline> made(new ComputePipeline(std::move(gpu), std::move(code), shape));
  if (made->firstRead() == kMostTextures || made->firstWritten() == kMostTextures) return nullptr;
  return made->build() || made->gpu_->isLost() ? made : nullptr;
}

GroupShape ComputePipeline::usualShape(const Gpu& gpu) {
  constexpr GroupShape usual{32, 8};
  // What Vulkan promises is half of that.
  const bool fits = gpu.properties().limits.maxComputeWorkGroupInvocations >= usual.width * usual.height;
  return fits ? usual : GroupShape{usual.width, usual.height / 2};
}

std::size_t ComputePipeline::firstAfter(std::size_t binding) const {
  std::size_t first = 0;
  while (first < kMostTextures && !has(binding + first)) ++first;
  return first;
}

VkPipeline ComputePipeline::on(const std::shared_ptr<Gpu>& gpu) {
  if (gpu != gpu_) {
    pipeline_ = {};
    auto before = std::exchange(gpu_, gpu);
    // Else it is tried again.
    if (!build()) gpu_ = std::move(before);
  }
  return pipeline_.get();
}

bool ComputePipeline::build() {
  const auto module = makeShaderModule(*gpu_, code_);
  if (!module) return false;
  constexpr std::array<VkSpecializationMapEntry, 2> sides{
      {{0, 0, sizeof(std::uint32_t)}, {1, sizeof(std::uint32_t), sizeof(std::uint32_t)}}};
  const std::array values{shape_.width, shape_.height};
  const VkSpecializationInfo constants{sides.size(), sides.data(), sizeof values, values.data()};
  auto info = vulkanStruct<VkComputePipelineCreateInfo>(VK_STRUCTURE_TYPE_COMPUTE_PIPELINE_CREATE_INFO);
  info.stage =
      vulkanStruct<VkPipelineShaderStageCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO);
  info.stage.stage = VK_SHADER_STAGE_COMPUTE_BIT;
  info.stage.module = module.get();
  info.stage.pName = "main";
  info.stage.pSpecializationInfo = &constants;
  info.layout = gpu_->kernelLayout();
  VkPipeline pipeline = VK_NULL_HANDLE;
  if (!gpu_->check(vkCreateComputePipelines(gpu_->device(), VK_NULL_HANDLE, 1, &info, nullptr, &pipeline),
                   "vkCreateComputePipelines")) {
    return false;
  }
  pipeline_ = {gpu_->device(), pipeline, vkDestroyPipeline};
  return true;
}

}  // namespace QelUtilVideo
