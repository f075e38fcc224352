#include <QelUtilVideo/platform/CVPixelBufferPool.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace QelUtilVideo {
namespace {

constexpr OSType kBGRA = kCVPixelFormatType_32BGRA;
constexpr OSType kNV12 = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;

TEST(PixelBuffer, formatsAreNamedByTheirCharacters) {
  EXPECT_EQ(pixelFormatName(kNV12), "420v");
  EXPECT_EQ(pixelFormatName(kCVPixelFormatType_32ARGB), "ARGB");
  EXPECT_EQ(pixelFormatName(OSType{40}), "40");
}

TEST(PixelBuffer, refusesWhatCannotBeAPicture) {
  std::vector<std::byte> bytes(64);
  CVPixelBufferRef buffer;
  int released = 0;
  const auto packed = [&](std::size_t width, std::size_t height, OSType format, void* data, std::size_t row) {
    return CVPixelBufferCreateWithBytes(
        width, height, format, data, row, [&] { ++released; }, buffer);
  };
  EXPECT_EQ(packed(2, 2, OSType{7}, bytes.data(), 8), kCVReturnInvalidPixelFormat);
  EXPECT_EQ(packed(2, 2, kNV12, bytes.data(), 8), kCVReturnInvalidPixelFormat);
  EXPECT_EQ(packed(0, 2, kBGRA, bytes.data(), 8), kCVReturnInvalidSize);
  EXPECT_EQ(packed(65536, 1, kBGRA, bytes.data(), 65536 * 4), kCVReturnInvalidSize);
  EXPECT_EQ(packed(2, 2, kBGRA, nullptr, 8), kCVReturnInvalidArgument);
  EXPECT_EQ(packed(2, 2, kBGRA, bytes.data(), 7), kCVReturnInvalidArgument);
  EXPECT_EQ(packed(3, 2, kCVPixelFormatType_422YpCbCr8, bytes.data(), 6), kCVReturnInvalidArgument);
  EXPECT_EQ(CVPixelBufferCreate(2, 2, OSType{7}, buffer), kCVReturnInvalidPixelFormat);
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(released, 0);
}

TEST(PixelBuffer, refusesPlanesOfOtherShapes) {
  std::vector<std::byte> bytes(64);
  const PixelPlane luma{bytes.data(), 3, 3, 4};
  const PixelPlane chroma{bytes.data() + 16, 2, 2, 4};
  const auto create = [&](std::vector<PixelPlane> planes) {
    CVPixelBufferRef buffer;
    return CVPixelBufferCreateWithPlanarBytes(3, 3, kNV12, std::move(planes), nullptr, buffer);
  };
  EXPECT_EQ(create({luma, chroma}), kCVReturnSuccess);
  EXPECT_EQ(create({luma}), kCVReturnInvalidArgument);
  EXPECT_EQ(create({luma, chroma, chroma}), kCVReturnInvalidArgument);
  EXPECT_EQ(create({luma, {bytes.data(), 1, 2, 4}}), kCVReturnInvalidArgument);
  EXPECT_EQ(create({luma, {bytes.data(), 2, 2, 5}}), kCVReturnInvalidArgument);
  EXPECT_EQ(create({luma, {nullptr, 2, 2, 4}}), kCVReturnInvalidArgument);
}

TEST(PixelBuffer, givesTheBytesBackOnceEvenWhenTheOwnerThrows) {
  std::vector<std::byte> bytes(64);
  int released = 0;
  CVPixelBufferRef buffer;
  ASSERT_EQ(CVPixelBufferCreateWithBytes(
                4, 4, kBGRA, bytes.data(), 16,
                [&] {
                  ++released;
                  throw std::runtime_error("owner");
                },
                buffer),
            kCVReturnSuccess);
  EXPECT_EQ(CVPixelBufferGetBaseAddress(*buffer), bytes.data());
  EXPECT_EQ(CVPixelBufferGetBytesPerRowOfPlane(*buffer, 1), 0U);
  EXPECT_EQ(CVPixelBufferLockBaseAddress(*buffer), kCVReturnSuccess);
  EXPECT_EQ(CVPixelBufferUnlockBaseAddress(*buffer), kCVReturnSuccess);
  EXPECT_EQ(CVPixelBufferUnlockBaseAddress(*buffer), kCVReturnPixelBufferNotLocked);
  buffer.reset();
  EXPECT_EQ(released, 1);
}

TEST(PixelBuffer, hasAnotherGenerationAfterEachWriting) {
  CVPixelBufferRef buffer, other;
  ASSERT_EQ(CVPixelBufferCreate(16, 16, kNV12, buffer), kCVReturnSuccess);
  ASSERT_EQ(CVPixelBufferCreate(16, 16, kNV12, other), kCVReturnSuccess);
  std::set<std::uint64_t> seen{0, buffer->writeGeneration(), other->writeGeneration()};
  EXPECT_EQ(seen.size(), 3U);
  ASSERT_EQ(CVPixelBufferLockBaseAddress(*buffer, kCVPixelBufferLock_ReadOnly), kCVReturnSuccess);
  EXPECT_EQ(CVPixelBufferUnlockBaseAddress(*buffer, kCVPixelBufferLock_ReadOnly), kCVReturnSuccess);
  EXPECT_EQ(CVPixelBufferUnlockBaseAddress(*buffer), kCVReturnPixelBufferNotLocked);
  EXPECT_TRUE(seen.contains(buffer->writeGeneration())) << "nobody wrote";
  std::vector<std::thread> writers;
  for (int i = 0; i < 4; ++i) {
    writers.emplace_back([&] {
      (void)CVPixelBufferLockBaseAddress(*buffer);
      CVPixelBufferUnlockBaseAddress(*buffer);
    });
  }
  for (auto& writer : writers) writer.join();
  EXPECT_TRUE(seen.insert(buffer->writeGeneration()).second);
  EXPECT_FALSE(seen.insert(other->writeGeneration()).second);
}

TEST(PixelBufferPool, reusesMemoryThatCameBackFromAnotherThreadAndIsOutlivedByItsBuffers) {
  auto pool = CVPixelBufferPool::make(321, 241, kNV12);
  ASSERT_TRUE(pool);
  CVPixelBufferRef first = pool->makePixelBuffer();
  ASSERT_TRUE(first);
  const std::byte* memory = CVPixelBufferGetBaseAddress(*first);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % 4096, 0U);
  EXPECT_EQ(CVPixelBufferGetBytesPerRow(*first) % 64, 0U);
  EXPECT_EQ(CVPixelBufferGetWidthOfPlane(*first, 1), 161U);
  EXPECT_EQ(CVPixelBufferGetHeightOfPlane(*first, 1), 121U);

  const std::uint64_t before = first->writeGeneration();
  const CVPixelBufferRef second = pool->makePixelBuffer();
  EXPECT_NE(CVPixelBufferGetBaseAddress(*second), memory);
  std::thread([dropped = std::move(first)]() mutable { dropped.reset(); }).join();
  first = pool->makePixelBuffer();
  EXPECT_EQ(CVPixelBufferGetBaseAddress(*first), memory);
  EXPECT_NE(first->writeGeneration(), before) << "it is not the picture that lay there before";

  pool.reset();
  std::fill_n(CVPixelBufferGetBaseAddress(*first), 241 * CVPixelBufferGetBytesPerRow(*first), std::byte{1});
  EXPECT_EQ(CVPixelBufferPool::make(0, 16, kBGRA), nullptr);
}

}  // namespace
}  // namespace QelUtilVideo
