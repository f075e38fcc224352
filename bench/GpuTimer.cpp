#include "GpuTimer.h"

#include <volk.h>

#include <array>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::uint32_t kBegin = 0, kEnd = 1;

// The driver's own functions, and what they were last called with.
PFN_vkResetFences resetFences;
PFN_vkBeginCommandBuffer beginCommandBuffer;
PFN_vkEndCommandBuffer endCommandBuffer;
bool hasNew;  ///< stamps, since they were last read
VkDevice device;
VkQueryPool stamps;

/// Whoever records begins with the fence.
VkResult VKAPI_CALL noteDevice(VkDevice used, std::uint32_t count, const VkFence* fences) {
  device = used;
  return resetFences(used, count, fences);
}

VkResult VKAPI_CALL stampBegin(VkCommandBuffer commands, const VkCommandBufferBeginInfo* info) {
  const VkResult result = beginCommandBuffer(commands, info);
  if (stamps == VK_NULL_HANDLE) {
    VkQueryPoolCreateInfo pool{};
    pool.sType = VK_STRUCTURE_TYPE_QUERY_POOL_CREATE_INFO;
    pool.queryType = VK_QUERY_TYPE_TIMESTAMP;
    pool.queryCount = 2;
    vkCreateQueryPool(device, &pool, nullptr, &stamps);
  }
  vkCmdResetQueryPool(commands, stamps, kBegin, 2);
  vkCmdWriteTimestamp(commands, VK_PIPELINE_STAGE_TOP_OF_PIPE_BIT, stamps, kBegin);
  return result;
}

VkResult VKAPI_CALL stampEnd(VkCommandBuffer commands) {
  vkCmdWriteTimestamp(commands, VK_PIPELINE_STAGE_BOTTOM_OF_PIPE_BIT, stamps, kEnd);
  hasNew = true;
  return endCommandBuffer(commands);
}

}  // namespace

GpuTimer::GpuTimer(float period) : period_(period) {
  resetFences = std::exchange(vkResetFences, noteDevice);
  beginCommandBuffer = std::exchange(vkBeginCommandBuffer, stampBegin);
  endCommandBuffer = std::exchange(vkEndCommandBuffer, stampEnd);
}

GpuTimer::~GpuTimer() {
  vkResetFences = resetFences;
  vkBeginCommandBuffer = beginCommandBuffer;
  vkEndCommandBuffer = endCommandBuffer;
  if (stamps != VK_NULL_HANDLE) vkDestroyQueryPool(device, std::exchange(stamps, VK_NULL_HANDLE), nullptr);
}

bool GpuTimer::finishFrame() {
  if (!std::exchange(hasNew, false)) return false;
  std::array<std::uint64_t, 2> times{};
  vkDeviceWaitIdle(device);
  const VkResult result =
      vkGetQueryPoolResults(device, stamps, kBegin, 2, sizeof times, times.data(), sizeof times[0],
                            VK_QUERY_RESULT_64_BIT | VK_QUERY_RESULT_WAIT_BIT);
  if (result != VK_SUCCESS) return true;
  sum_ += static_cast<double>(times[kEnd] - times[kBegin]) * static_cast<double>(period_) / 1000;
  frames_ += 1;
  return true;
}

double GpuTimer::mean() const { return frames_ > 0 ? sum_ / static_cast<double>(frames_) : 0; }

}  // namespace QelUtilVideo
