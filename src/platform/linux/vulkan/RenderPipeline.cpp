#include "platform/linux/vulkan/RenderPipeline.h"

#include "platform/linux/vulkan/ShaderLibrary.h"

#include <array>
#include <utility>

namespace QelUtilVideo {

Result<std::shared_ptr<MTLRenderPipelineState>> RenderPipeline::make(
    std::shared_ptr<Gpu> gpu, const MTLRenderPipelineDescriptor& descriptor) {
  if (!descriptor.vertexFunction || !descriptor.fragmentFunction) {
    return graphicsError(3, "the shader library lacks a function");
  }
  if (descriptor.colorAttachmentPixelFormat != MTLPixelFormat::bgra8Unorm) {
    return graphicsError(4, "pictures are drawn in BGRA only");
  }
  std::shared_ptr<RenderPipeline> made(new RenderPipeline(std::move(gpu), descriptor));
  if (auto error = made->build(); error && !made->gpu_->isLost()) return *std::move(error);
  return std::shared_ptr<MTLRenderPipelineState>(std::move(made));
}

VkPipeline RenderPipeline::on(const std::shared_ptr<Gpu>& gpu) {
  if (gpu != gpu_) {
    pipeline_ = {};
    auto before = std::exchange(gpu_, gpu);
    // Else it is tried again.
    if (build()) gpu_ = std::move(before);
  }
  return pipeline_.get();
}

std::optional<NSError> RenderPipeline::build() {
  const auto moduleOf = [&](const MTLFunction& function) {
    return makeShaderModule(*gpu_, static_cast<const ShaderFunction&>(function).code);
  };
  const auto vertexModule = moduleOf(*descriptor_.vertexFunction);
  const auto fragmentModule = moduleOf(*descriptor_.fragmentFunction);
  if (!vertexModule || !fragmentModule) return graphicsError(5, "the driver does not take the shaders");

  std::array<VkPipelineShaderStageCreateInfo, 2> stages{};
  for (auto& stage : stages) {
    stage.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO;
    stage.pName = "main";
  }
  stages[0].stage = VK_SHADER_STAGE_VERTEX_BIT;
  stages[0].module = vertexModule.get();
  stages[1].stage = VK_SHADER_STAGE_FRAGMENT_BIT;
  stages[1].module = fragmentModule.get();

  constexpr VkVertexInputBindingDescription binding{0, 5 * sizeof(float), VK_VERTEX_INPUT_RATE_VERTEX};
  constexpr std::array<VkVertexInputAttributeDescription, 2> attributes{
      {{0, 0, VK_FORMAT_R32G32B32_SFLOAT, 0}, {1, 0, VK_FORMAT_R32G32_SFLOAT, 3 * sizeof(float)}}};
  auto input = vulkanStruct<VkPipelineVertexInputStateCreateInfo>(
      VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO);
  input.vertexBindingDescriptionCount = 1;
  input.pVertexBindingDescriptions = &binding;
  input.vertexAttributeDescriptionCount = attributes.size();
  input.pVertexAttributeDescriptions = attributes.data();
  auto assembly = vulkanStruct<VkPipelineInputAssemblyStateCreateInfo>(
      VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO);
  assembly.topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_STRIP;
  auto viewport =
      vulkanStruct<VkPipelineViewportStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO);
  viewport.viewportCount = viewport.scissorCount = 1;
  auto raster = vulkanStruct<VkPipelineRasterizationStateCreateInfo>(
      VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO);
  raster.polygonMode = VK_POLYGON_MODE_FILL;
  raster.cullMode = VK_CULL_MODE_NONE;
  raster.lineWidth = 1;
  auto samples = vulkanStruct<VkPipelineMultisampleStateCreateInfo>(
      VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO);
  samples.rasterizationSamples = VK_SAMPLE_COUNT_1_BIT;
  VkPipelineColorBlendAttachmentState attachment{};
  attachment.colorWriteMask = 0xf;
  auto blend = vulkanStruct<VkPipelineColorBlendStateCreateInfo>(
      VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO);
  blend.attachmentCount = 1;
  blend.pAttachments = &attachment;
  constexpr std::array<VkDynamicState, 2> changing{VK_DYNAMIC_STATE_VIEWPORT, VK_DYNAMIC_STATE_SCISSOR};
  auto dynamic =
      vulkanStruct<VkPipelineDynamicStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_DYNAMIC_STATE_CREATE_INFO);
  dynamic.dynamicStateCount = changing.size();
  dynamic.pDynamicStates = changing.data();

  auto info = vulkanStruct<VkGraphicsPipelineCreateInfo>(VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO);
  info.stageCount = stages.size();
  info.pStages = stages.data();
  info.pVertexInputState = &input;
  info.pInputAssemblyState = &assembly;
  info.pViewportState = &viewport;
  info.pRasterizationState = &raster;
  info.pMultisampleState = &samples;
  info.pColorBlendState = &blend;
  info.pDynamicState = &dynamic;
  info.layout = gpu_->pipelineLayout();
  info.renderPass = gpu_->renderPass();
  VkPipeline pipeline = VK_NULL_HANDLE;
  if (!gpu_->check(vkCreateGraphicsPipelines(gpu_->device(), VK_NULL_HANDLE, 1, &info, nullptr, &pipeline),
                   "vkCreateGraphicsPipelines")) {
    return graphicsError(6, "the driver does not take the pipeline");
  }
  pipeline_ = {gpu_->device(), pipeline, vkDestroyPipeline};
  return std::nullopt;
}

}  // namespace QelUtilVideo
