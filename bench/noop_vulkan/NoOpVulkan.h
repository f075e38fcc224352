#pragma once

#include <atomic>
#include <cstdint>

namespace QelUtilVideo {

/// What a driver that does nothing was asked to do since it was loaded. Any thread.
struct NoOpVulkanCounts {
  using Count = std::atomic<std::int64_t>;

  Count submissions{0};      ///< command buffers that were sent off
  Count commands{0};         ///< recorded, draws and uploads among them
  Count draws{0};            ///< of vertices
  Count descriptorSets{0};   ///< allocated from their pools
  Count allocations{0};      ///< of device memory, imports not counted
  Count imports{0};          ///< of memory that the process has already
  Count stagedUploads{0};    ///< from memory of the driver's own, which the caller had to fill
  Count importedUploads{0};  ///< from where the bytes lay already
};

/// The driver's one exported function beside those that the Vulkan loader knows.
using NoOpVulkanCountsFunction = NoOpVulkanCounts* (*)();
inline constexpr const char* kNoOpVulkanCounts = "qelNoOpVulkanCounts";

}  // namespace QelUtilVideo
