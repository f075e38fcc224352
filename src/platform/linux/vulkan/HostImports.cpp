#include "platform/linux/vulkan/HostImports.h"

#include <cstdint>
#include <limits>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr auto kHostAllocation = VK_EXTERNAL_MEMORY_HANDLE_TYPE_HOST_ALLOCATION_BIT_EXT;

}  // namespace

HostImports::HostImports(std::shared_ptr<Gpu> gpu)
    : gpu_(std::move(gpu)), table_(std::make_shared<Table>()) {}

HostImports::~HostImports() {
  table_->with([](auto& imports) { imports.clear(); });
}

VkBuffer HostImports::bufferOver(const std::shared_ptr<PixelMemory>& memory) {
  const PixelMemory* key = memory.get();
  const auto known = table_->with([&](auto& imports) {
    const auto found = imports.find(key);
    return found == imports.end() ? std::pair(false, VkBuffer{})
                                  : std::pair(true, found->second.buffer.get());
  });
  if (known.first) return known.second;
  // First of all: without it the import might outlive the bytes.
  memory->beforeItGoes([table = table_, key] { table->with([&](auto& imports) { imports.erase(key); }); });
  Import made = import(*memory);
  const VkBuffer buffer = made.buffer.get();
  if (buffer != VK_NULL_HANDLE) ++gpu_->counters().imports;
  table_->with([&](auto& imports) { imports.emplace(key, std::move(made)); });
  return buffer;
}

std::size_t HostImports::count() const {
  return table_->with([](const auto& imports) { return imports.size(); });
}

HostImports::Import HostImports::import(const PixelMemory& memory) const {
  const VkDeviceSize alignment = gpu_->hostPointerAlignment();
  const bool isAligned = alignment > 0 && memory.size() % alignment == 0 &&
                         reinterpret_cast<std::uintptr_t>(memory.bytes()) % alignment == 0;
  if (!isAligned) return {};
  const VkDevice device = gpu_->device();
  Import made;

  auto external =
      vulkanStruct<VkExternalMemoryBufferCreateInfo>(VK_STRUCTURE_TYPE_EXTERNAL_MEMORY_BUFFER_CREATE_INFO);
  external.handleTypes = kHostAllocation;
  auto buffers = vulkanStruct<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
  buffers.pNext = &external;
  buffers.size = memory.size();
  buffers.usage = VK_BUFFER_USAGE_TRANSFER_SRC_BIT;
  VkBuffer buffer = VK_NULL_HANDLE;
  if (!succeeded(vkCreateBuffer(device, &buffers, nullptr, &buffer), "vkCreateBuffer")) return {};
  made.buffer = {device, buffer, vkDestroyBuffer};

  VkMemoryRequirements needs{};
  vkGetBufferMemoryRequirements(device, buffer, &needs);
  auto pointer =
      vulkanStruct<VkMemoryHostPointerPropertiesEXT>(VK_STRUCTURE_TYPE_MEMORY_HOST_POINTER_PROPERTIES_EXT);
  if (!succeeded(vkGetMemoryHostPointerPropertiesEXT(device, kHostAllocation, memory.bytes(), &pointer),
                 "vkGetMemoryHostPointerPropertiesEXT")) {
    return {};
  }
  // What the processor wrote is there for the other one without being flushed.
  const std::uint32_t type =
      gpu_->memoryType(needs.memoryTypeBits & pointer.memoryTypeBits,
                       VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT);
  if (type == std::numeric_limits<std::uint32_t>::max() || needs.size > memory.size()) return {};

  auto imports =
      vulkanStruct<VkImportMemoryHostPointerInfoEXT>(VK_STRUCTURE_TYPE_IMPORT_MEMORY_HOST_POINTER_INFO_EXT);
  imports.handleType = kHostAllocation;
  imports.pHostPointer = memory.bytes();
  auto info = vulkanStruct<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
  info.pNext = &imports;
  info.allocationSize = memory.size();
  info.memoryTypeIndex = type;
  VkDeviceMemory imported = VK_NULL_HANDLE;
  if (!succeeded(vkAllocateMemory(device, &info, nullptr, &imported), "vkAllocateMemory")) return {};
  made.memory = {device, imported, vkFreeMemory};
  if (!succeeded(vkBindBufferMemory(device, buffer, imported, 0), "vkBindBufferMemory")) return {};
  return made;
}

/// Memory that is not taken is no trouble: what lies in it is copied.
bool HostImports::succeeded(VkResult result, const char* what) const {
  return result == VK_ERROR_DEVICE_LOST ? gpu_->check(result, what) : result == VK_SUCCESS;
}

}  // namespace QelUtilVideo
