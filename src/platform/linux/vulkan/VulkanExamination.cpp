#include "platform/linux/vulkan/VulkanExamination.h"

#include "platform/linux/vulkan/Gpu.h"

#include <string>

namespace QelUtilVideo {

namespace {

constexpr const char* kSubject = "Vulkan";

std::string versionText(std::uint32_t version) {
  return std::to_string(VK_API_VERSION_MAJOR(version)) + "." + std::to_string(VK_API_VERSION_MINOR(version)) +
         "." + std::to_string(VK_API_VERSION_PATCH(version));
}

}  // namespace

std::vector<Finding> examineVulkan() {
  std::string reasons;
  const auto gpu = Gpu::open([&](const std::string& text) { reasons += ", " + text; });
  if (!gpu) {
    return {{Finding::Area::drawing, kSubject, Finding::State::missing, "no driver for Vulkan 1.1" + reasons,
             "Install the packages libvulkan1 and mesa-vulkan-drivers, or the driver of the graphics "
             "processor."}};
  }
  const auto& properties = gpu->properties();
  const bool isSoftware = properties.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU;
  std::string detail = std::string(properties.deviceName) + ", version " + versionText(properties.apiVersion);
  if (isSoftware) detail += ", in software";
  if (!gpu->canShow()) detail += ", off screen only";
  const bool isLimited = isSoftware || !gpu->canShow();
  return {{Finding::Area::drawing, kSubject, isLimited ? Finding::State::limited : Finding::State::ok, detail,
           isLimited ? "Install the Vulkan driver of the graphics processor, if there is one." : ""}};
}

}  // namespace QelUtilVideo
