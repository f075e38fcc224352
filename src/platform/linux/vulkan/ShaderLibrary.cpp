#include "platform/linux/vulkan/ShaderLibrary.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>

namespace QelUtilVideo {

namespace {

/// A library file: this line; then for each function a line with its name and the number of its bytes, and
/// the bytes.
constexpr std::string_view kSignature = "QelUtilVideo shaders 1\n";
constexpr std::uint32_t kSpirvMagic = 0x07230203;

}  // namespace

NSError graphicsError(int code, std::string text) {
  return {"QelUtilVideo.platform.graphics", code, std::move(text)};
}

VulkanHandle<VkShaderModule> makeShaderModule(Gpu& gpu, const ShaderCode& code) {
  auto info = vulkanStruct<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
  info.codeSize = code.size() * sizeof(std::uint32_t);
  info.pCode = code.data();
  VkShaderModule module = VK_NULL_HANDLE;
  if (!gpu.check(vkCreateShaderModule(gpu.device(), &info, nullptr, &module), "vkCreateShaderModule"))
    return {};
  return {gpu.device(), module, vkDestroyShaderModule};
}

Result<std::shared_ptr<MTLLibrary>> ShaderLibrary::read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return graphicsError(1, "there is no shader library " + path);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  const NSError damaged = graphicsError(2, "the shader library " + path + " is damaged");
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
    ShaderCode code(size / 4);
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
  return std::make_shared<ShaderFunction>(found->second);
}

}  // namespace QelUtilVideo
