#pragma once

#include "platform/CallSafely.h"
#include "platform/Metal.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace QelUtilVideo {

/// Graphics processors through Vulkan. Any thread; its device is for the main thread.
class VulkanMetal final : public Metal {
 public:
  /// `libraryPath` says where the shader library lies; absent when there is none.
  VulkanMetal(std::function<std::optional<std::string>()> libraryPath, TroubleHandler trouble);

  /// The same one each time.
  [[nodiscard]] std::shared_ptr<MTLDevice> MTLCreateSystemDefaultDevice() override;

 private:
  const std::function<std::optional<std::string>()> libraryPath_;
  const TroubleHandler trouble_;
  std::once_flag once_;
  std::shared_ptr<MTLDevice> device_;
};

}  // namespace QelUtilVideo
