#pragma once

#include "platform/Synchronised.h"
#include "platform/linux/vulkan/VulkanMetal.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace QelUtilVideo {

inline std::optional<std::string> shaderLibrary() {
  // The test programs lie beside the library's folder.
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path().parent_path() / "lib/QelUtilVideo/shaders.lib").string();
}

/// The graphics processor that there is, watched by the validation layers where they are installed.
class VulkanDevices : public testing::Test {
 protected:
  void SetUp() override {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no threads yet
    ::setenv("VK_INSTANCE_LAYERS", "VK_LAYER_KHRONOS_validation", 0);
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    ::setenv("VK_LAYER_ENABLES", "VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT", 0);
    device_ = metal_->MTLCreateSystemDefaultDevice();
    if (!device_) GTEST_SKIP() << "there is no Vulkan driver here";
  }
  /// What a test made of the device is gone by now: the layers tell what of it is left.
  void TearDown() override {
    device_.reset();
    metal_.reset();
    EXPECT_THAT(trouble_.copy(), testing::IsEmpty());
  }

  Synchronised<std::vector<std::string>> trouble_;
  const TroubleHandler note_ = [this](const std::string& text) {
    trouble_.with([&](auto& all) { all.push_back(text); });
  };
  std::optional<VulkanMetal> metal_{std::in_place, shaderLibrary, note_};
  std::shared_ptr<MTLDevice> device_;
};

}  // namespace QelUtilVideo
