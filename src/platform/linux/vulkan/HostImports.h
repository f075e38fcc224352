#pragma once

#include "platform/PixelMemory.h"
#include "platform/Synchronised.h"
#include "platform/linux/vulkan/Gpu.h"

#include <cstddef>
#include <map>
#include <memory>

namespace QelUtilVideo {

/// Memory of pictures as buffers that the graphics processor reads in place. One thread at a time, while
/// memory goes on any.
class HostImports {
 public:
  explicit HostImports(std::shared_ptr<Gpu> gpu);
  HostImports(const HostImports&) = delete;
  HostImports& operator=(const HostImports&) = delete;
  /// The processor is done with the buffers.
  ~HostImports();

  /// A buffer over all of the memory, the same one each time, there until the memory or this goes; null when
  /// the processor cannot read there. The memory must not go before the processor is done with the buffer.
  [[nodiscard]] VkBuffer bufferOver(const std::shared_ptr<PixelMemory>& memory);
  /// How many pieces of memory are known, those that cannot be read included.
  [[nodiscard]] std::size_t count() const;

 private:
  struct Import {
    VulkanHandle<VkDeviceMemory> memory;
    VulkanHandle<VkBuffer> buffer;
  };
  /// Imports are destroyed under the lock: memory that goes while all of them do has to wait.
  using Table = Synchronised<std::map<const PixelMemory*, Import>>;

  [[nodiscard]] Import import(const PixelMemory& memory) const;
  [[nodiscard]] bool succeeded(VkResult result, const char* what) const;

  const std::shared_ptr<Gpu> gpu_;
  const std::shared_ptr<Table> table_;
};

}  // namespace QelUtilVideo
