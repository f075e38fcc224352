#include "platform/linux/vulkan/GpuPipelines.h"

#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>

namespace QelUtilVideo {

namespace {

constexpr const char* kDomain = "QelUtilVideo.platform.graphics";
/// A library file: this line; then for each function a line with its name and the number of its bytes, and
/// the bytes.
constexpr std::string_view kSignature = "QelUtilVideo shaders 1\n";
constexpr std::uint32_t kSpirvMagic = 0x07230203;

struct Function final : MTLFunction {
  ShaderLibrary::Code code;
};

NSError failure(int code, std::string text) { return {kDomain, code, std::move(text)}; }

VulkanHandle<VkShaderModule> makeModule(Gpu& gpu, const MTLFunction& function) {
  const auto& code = static_cast<const Function&>(function).code;
  auto info = vulkanStruct<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
  info.codeSize = code.size() * sizeof(std::uint32_t);
  info.pCode = code.data();
  VkShaderModule module = VK_NULL_HANDLE;
  if (!gpu.check(vkCreateShaderModule(gpu.device(), &info, nullptr, &module), "vkCreateShaderModule"))
    return {};
  return {gpu.device(), module, vkDestroyShaderModule};
}

}  // namespace

Result<std::shared_ptr<MTLLibrary>> ShaderLibrary::read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return failure(1, "there is no shader library " + path);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  const NSError damaged = failure(2, "the shader library " + path + " is damaged");
  if (!bytes.starts_with(kSignature)) return damaged;
  auto library = std::make_shared<ShaderLibrary>();
  for (std::size_t at = kSignature.size(); at < bytes.size();) {
    const std::size_t blank = bytes.find(' ', at), end = bytes.find('\n', at);
    if (blank == std::string::npos || end == std::string::npos || blank > end || end - blank > 10)
      return damaged;
    std::size_t size = 0;
    for (const char digit : std::string_view(bytes).substr(blank + 1, end - blank - 1)) {
      if (digit < '0' || digit > '9') return damaged;
      size = size * 10 + static_cast<std::size_t>(digit - '0');
    }
    if (size < 20 || size % 4 != 0 || size > bytes.size() - end - 1) return damaged;
    Code code(size / 4);
    std::memcpy(code.data(), bytes.data() + end + 1, size);
    if (code[0] != kSpirvMagic) return damaged;
    library->functions_[bytes.substr(at, blank - at)] = std::move(code);
    at = end + 1 + size;
  }
  return std::shared_ptr<MTLLibrary>(std::move(library));
}

std::shared_ptr<MTLFunction> ShaderLibrary::newFunctionWithName(const std::string& name) {
  const auto found = functions_.find(name);
  if (found == functions_.end()) return nullptr;
  auto function = std::make_shared<Function>();
  function->code = found->second;
  return function;
}

Result<std::shared_ptr<MTLRenderPipelineState>> GpuPipeline::make(
    std::shared_ptr<Gpu> gpu, const MTLRenderPipelineDescriptor& descriptor) {
  if (!descriptor.vertexFunction || !descriptor.fragmentFunction) {
    return failure(3, "the shader library lacks a function");
  }
  if (descriptor.colorAttachmentPixelFormat != MTLPixelFormat::bgra8Unorm) {
    return failure(4, "pictures are drawn in BGRA only");
  }
  std::shared_ptr<GpuPipeline> made(new GpuPipeline(std::move(gpu), descriptor));
  if (auto error = made->build(); error && !made->gpu_->isLost()) return *std::move(error);
  return std::shared_ptr<MTLRenderPipelineState>(std::move(made));
}

VkPipeline GpuPipeline::on(const std::shared_ptr<Gpu>& gpu) {
  if (gpu != gpu_) {
    pipeline_ = {};
    gpu_ = gpu;
    (void)build();
  }
  return pipeline_.get();
}

std::optional<NSError> GpuPipeline::build() {
  const auto vertexModule = makeModule(*gpu_, *descriptor_.vertexFunction);
  const auto fragmentModule = makeModule(*gpu_, *descriptor_.fragmentFunction);
  if (!vertexModule || !fragmentModule) return failure(5, "the driver does not take the shaders");

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
    return failure(6, "the driver does not take the pipeline");
  }
  pipeline_ = {gpu_->device(), pipeline, vkDestroyPipeline};
  return std::nullopt;
}

}  // namespace QelUtilVideo
