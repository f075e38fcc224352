#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/Gpu.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// A compiled shader, in SPIR-V.
using ShaderCode = std::vector<std::uint32_t>;

/// An error of this layer.
[[nodiscard]] NSError graphicsError(int code, std::string text);

/// Empty when the driver does not take it.
[[nodiscard]] VulkanHandle<VkShaderModule> makeShaderModule(Gpu& gpu, const ShaderCode& code);

struct ShaderFunction final : MTLFunction {
  explicit ShaderFunction(ShaderCode words) : code(std::move(words)) {}
  const ShaderCode code;
};

/// Compiled shaders by the names of their functions.
class ShaderLibrary final : public MTLLibrary {
 public:
  /// Reads a library file, or says what is wrong with it.
  [[nodiscard]] static Result<std::shared_ptr<MTLLibrary>> read(const std::string& path);

  std::shared_ptr<MTLFunction> newFunctionWithName(const std::string& name) override;

 private:
  std::map<std::string, ShaderCode> functions_;
};

}  // namespace QelUtilVideo
