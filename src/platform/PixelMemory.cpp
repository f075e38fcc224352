#include "platform/PixelMemory.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstdlib>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::size_t kPageSize = 4096;

}  // namespace

std::shared_ptr<PixelMemory> PixelMemory::allocate(std::size_t size) {
  struct Memory : PixelMemory {
    Memory(Bytes bytes, std::size_t count) : PixelMemory(std::move(bytes), count) {}
  };
  const std::size_t rounded = (size + kPageSize - 1) / kPageSize * kPageSize;
  Bytes bytes(static_cast<std::byte*>(std::aligned_alloc(kPageSize, rounded)));
  return bytes ? std::make_shared<Memory>(std::move(bytes), rounded) : nullptr;
}

std::shared_ptr<PixelMemory> PixelMemory::of(const CVPixelBuffer& buffer) { return buffer.memory_; }

void PixelMemory::keep(std::shared_ptr<PixelMemory> memory, CVPixelBuffer& buffer) {
  buffer.memory_ = std::move(memory);
}

PixelMemory::~PixelMemory() {
  const auto farewells = farewells_.with([](auto& all) { return std::exchange(all, {}); });
  for (const auto& farewell : farewells) farewell();
}

void PixelMemory::beforeItGoes(std::function<void()> farewell) {
  farewells_.with([&](auto& all) { all.push_back(std::move(farewell)); });
}

void PixelMemory::Free::operator()(std::byte* bytes) const { std::free(bytes); }

}  // namespace QelUtilVideo
