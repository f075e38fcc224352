#include "platform/linux/vulkan/GpuTextureCache.h"

#include "platform/PixelMemory.h"
#include "platform/Root.h"
#include "render/metal/Geometry.h"
#include "render/metal/Pipelines.h"
#include "render/metal/PlaneTextures.h"
#include "support/ReferenceColors.h"
#include "support/TemporaryFolder.h"
#include "vulkan/VulkanDevices.h"

#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/CVPixelBufferPool.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <volk.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <thread>

namespace QelUtilVideo {
namespace {

constexpr OSType kNV12 = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;

/// Fills the pixels with what only this seed gives; what lies between rows stays what it is.
void paint(const CVPixelBuffer& picture, std::uint32_t seed) {
  std::uint32_t state = seed * 2654435761U + 1;
  for (std::size_t plane = 0; plane < 2; ++plane) {
    const PixelPlane& rows = picture.planes()[plane];
    for (std::size_t y = 0; y < rows.height; ++y) {
      std::byte* const row = rows.baseAddress + y * rows.bytesPerRow;
      for (std::size_t x = 0; x < rows.width * (plane + 1); ++x) {
        state = state * 1664525 + 1013904223;
        row[x] = static_cast<std::byte>(64 + (state >> 24) / 2);
      }
    }
  }
}

CVPixelBufferRef painted(CVPixelBufferRef picture, std::uint32_t seed) {
  paint(*picture, seed);
  return picture;
}

/// The largest distance between a colour shown and the one that the picture has there.
double difference(const CGImage& shown, const CVPixelBuffer& picture) {
  double largest = 0;
  for (std::size_t y = 0; y < picture.height(); ++y) {
    for (std::size_t x = 0; x < picture.width(); ++x) {
      const double u = (static_cast<double>(x) + 0.5) / static_cast<double>(picture.width());
      const double v = (static_cast<double>(y) + 0.5) / static_cast<double>(picture.height());
      const Color expected = colorOf(picture, u, v);
      const std::byte* pixel = shown.dataProvider()->bytes()->data() + y * shown.layout().bytesPerRow + 4 * x;
      for (std::size_t i = 0; i < expected.size(); ++i) {
        const double is = std::to_integer<int>(pixel[i]);
        largest = std::max(largest, std::abs(expected[2 - i] - is));
      }
    }
  }
  return largest;
}

/// Rounding, twice.
constexpr double kTolerance = 4;

class TextureCaches : public VulkanDevices {
 protected:
  struct Drawing {
    std::unique_ptr<MetalSurface> surface;
    std::shared_ptr<MTLCommandBuffer> commands;
    metal::PlaneTextures textures;
  };

  void SetUp() override {
    VulkanDevices::SetUp();
    if (!device_) return;
    queue_ = device_->newCommandQueue();
    cache_ = makeCache();
    pipeline_ = metal::makeRenderPipeline(*device_, "renderVertex", "renderFragmentYUV", "[T]");
  }
  void TearDown() override {
    queue_.reset();
    cache_.reset();
    pipeline_.reset();
    VulkanDevices::TearDown();
  }

  std::shared_ptr<GpuTextureCache> makeCache() {
    return std::dynamic_pointer_cast<GpuTextureCache>(device_->CVMetalTextureCacheCreate());
  }
  /// The drawing of a picture in its own size, not sent off yet.
  Drawing record(GpuTextureCache& cache, const CVPixelBufferRef& picture) {
    Drawing drawing{device_->makeSurface(std::nullopt), nullptr, {}};
    while (!drawing.commands) drawing.commands = queue_->commandBuffer();
    const auto textures = metal::makeTextures(picture, cache, "[T]");
    EXPECT_TRUE(textures);
    if (!textures) return drawing;
    drawing.textures = *textures;
    metal::Geometry geometry(Root::current().platform().clock(), "[T]");
    geometry.setFitInBounds(true);
    geometry.updateOrientation(CGImagePropertyOrientation::up, false, textures->imageSize);
    (void)geometry.resize(*device_, textures->imageSize);
    const auto drawable = drawing.surface->nextDrawable(picture->width(), picture->height());
    metal::encodeRenderPipeline(*drawing.commands, pipeline_, {drawable->texture(), {}}, geometry,
                                textures->textures);
    drawing.commands->presentDrawable(drawable);
    return drawing;
  }
  std::unique_ptr<MetalSurface> draw(GpuTextureCache& cache, const CVPixelBufferRef& picture) {
    Drawing drawing = record(cache, picture);
    drawing.commands->commit();
    return std::move(drawing.surface);
  }
  double differenceWhenDrawn(const CVPixelBufferRef& picture) {
    const auto shown = draw(*cache_, picture)->contents();
    return shown ? difference(*shown, *picture) : 256;
  }
  /// Whether memory that is allocated here can be read in place.
  [[nodiscard]] bool canImport() {
    const auto gpu = Gpu::open(note_);
    return gpu && gpu->hostPointerAlignment() > 0 && gpu->hostPointerAlignment() <= 4096;
  }

  std::shared_ptr<MTLCommandQueue> queue_;
  std::shared_ptr<GpuTextureCache> cache_;
  std::shared_ptr<MTLRenderPipelineState> pipeline_;
};

TEST_F(TextureCaches, uploadAPictureOnceForAllViewsUntilItIsWrittenTo) {
  const auto pool = CVPixelBufferPool::make(64, 32, kNV12);
  auto picture = painted(pool->makePixelBuffer(), 1);
  const auto other = makeCache();
  const GpuCounters& counters = cache_->counters();
  for (int redraw = 0; redraw < 3; ++redraw) {
    draw(*cache_, picture);
    draw(*other, picture);
  }
  EXPECT_EQ(counters.uploads, 2U);
  const Drawing known = record(*other, picture);

  (void)CVPixelBufferLockBaseAddress(*picture, kCVPixelBufferLock_ReadOnly);
  (void)CVPixelBufferUnlockBaseAddress(*picture, kCVPixelBufferLock_ReadOnly);
  EXPECT_LT(differenceWhenDrawn(picture), kTolerance);
  EXPECT_EQ(counters.uploads, 2U) << "it was only read";
  (void)CVPixelBufferLockBaseAddress(*picture);
  paint(*picture, 2);
  (void)CVPixelBufferUnlockBaseAddress(*picture);
  const Drawing anew = record(*other, picture);
  EXPECT_NE(anew.textures.textures, known.textures.textures);
  anew.commands->commit();
  EXPECT_LT(differenceWhenDrawn(picture), kTolerance);
  EXPECT_EQ(counters.uploads, 4U);

  picture.reset();
  picture = painted(pool->makePixelBuffer(), 3);
  EXPECT_LT(differenceWhenDrawn(picture), kTolerance) << "the memory is the same, the picture is not";
  EXPECT_EQ(counters.uploads, 6U);
}

TEST_F(TextureCaches, readAPoolsMemoryInPlaceAndStopWhenItGoes) {
  if (!canImport()) GTEST_SKIP() << "this driver reads no memory of the process in place";
  auto pool = CVPixelBufferPool::make(101, 67, kNV12);
  const GpuCounters& counters = cache_->counters();
  for (std::uint32_t frame = 0; frame < 12; ++frame) {
    EXPECT_LT(differenceWhenDrawn(painted(pool->makePixelBuffer(), frame)), kTolerance) << frame;
  }
  EXPECT_EQ(counters.bytesCopied, 0U);
  EXPECT_EQ(counters.uploads, 24U);
  EXPECT_LE(counters.imports, 3U) << "memory that comes back is known";

  HostImports imports(Gpu::open(note_));
  CVPixelBufferRef picture;
  ASSERT_EQ(CVPixelBufferCreate(64, 64, kNV12, picture), kCVReturnSuccess);
  const VkBuffer buffer = imports.bufferOver(PixelMemory::of(*picture));
  EXPECT_NE(buffer, VkBuffer{VK_NULL_HANDLE});
  EXPECT_EQ(imports.bufferOver(PixelMemory::of(*picture)), buffer);
  auto longer = PixelMemory::allocate(1);
  {
    HostImports shorter(Gpu::open(note_));
    EXPECT_NE(shorter.bufferOver(longer), VkBuffer{VK_NULL_HANDLE});
  }
  longer.reset();
  EXPECT_EQ(imports.count(), 1U);
  std::thread([last = std::move(picture)]() mutable { last.reset(); }).join();
  EXPECT_EQ(imports.count(), 0U);
}

TEST_F(TextureCaches, copyTheBytesOfOthersOnceWhateverTheirLayout) {
  const GpuCounters& counters = cache_->counters();
  const auto expectCopied = [&](std::size_t width, std::size_t height, std::byte* memory, std::size_t lumaRow,
                                std::size_t chromaRow) {
    const std::size_t chromaWidth = (width + 1) / 2, chromaHeight = (height + 1) / 2;
    CVPixelBufferRef picture;
    int released = 0;
    ASSERT_EQ(CVPixelBufferCreateWithPlanarBytes(
                  width, height, kNV12,
                  {{memory, width, height, lumaRow},
                   {memory + lumaRow * height, chromaWidth, chromaHeight, chromaRow}},
                  [&] { ++released; }, picture),
              kCVReturnSuccess);
    const GpuCounters before = counters;
    EXPECT_LT(differenceWhenDrawn(painted(picture, 7)), kTolerance) << width << " x " << height;
    EXPECT_LT(differenceWhenDrawn(picture), kTolerance);
    EXPECT_EQ(counters.bytesCopied - before.bytesCopied, width * height + 2 * chromaWidth * chromaHeight);
    EXPECT_EQ(counters.imports, before.imports);
    picture.reset();
    EXPECT_EQ(released, 1) << "a copy needs nothing of the picture any more";
  };
  std::vector<std::byte> bytes(256 * 256);
  expectCopied(64, 32, bytes.data() + 1, 64, 64);
  expectCopied(37, 21, bytes.data() + 3, 41, 54);
  expectCopied(1, 1, bytes.data(), 1, 2);
  expectCopied(131, 5, bytes.data() + 7, 200, 132);

  const TemporaryFolder folder;
  const std::string path = folder.write("frame", std::string(32768, '\0'));
  const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  void* const mapped = ::mmap(nullptr, 32768, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  ASSERT_NE(mapped, MAP_FAILED);
  expectCopied(128, 96, static_cast<std::byte*>(mapped), 128, 128);
  ::munmap(mapped, 32768);

  // One texture is on show while the next one is filled.
  expectCopied(128, 96, bytes.data(), 130, 130);
  const auto allocations = counters.allocations;
  for (int frame = 0; frame < 6; ++frame) expectCopied(128, 96, bytes.data(), 130, 130);
  EXPECT_EQ(counters.allocations, allocations) << "there is room from before";
}

TEST_F(TextureCaches, keepPicturesAndTexturesThatAreStillRead) {
  const auto pool = CVPixelBufferPool::make(160, 120, kNV12);
  struct Shown {
    CVPixelBufferRef copy;
    std::unique_ptr<MetalSurface> surface;
  };
  std::deque<Shown> all;
  std::weak_ptr<CVPixelBuffer> last;
  for (std::uint32_t frame = 0; frame < 24; ++frame) {
    CVPixelBufferRef copy;
    ASSERT_EQ(CVPixelBufferCreate(160, 120, kNV12, copy), kCVReturnSuccess);
    const auto picture = painted(pool->makePixelBuffer(), frame);
    last = picture;
    all.push_back({painted(copy, frame), draw(*cache_, picture)});
  }
  EXPECT_EQ(last.expired(), !canImport()) << "what is read in place waits for the processor";
  for (const Shown& each : all) {
    const auto shown = each.surface->contents();
    ASSERT_TRUE(shown);
    EXPECT_LT(difference(*shown, *each.copy), kTolerance);
  }
  while (!queue_->commandBuffer() || !last.expired()) std::this_thread::yield();
  EXPECT_LE(cache_->counters().allocations, canImport() ? 10U : 20U) << "textures are used again";
}

TEST_F(TextureCaches, uploadAgainWhatWasNeverSent) {
  const GpuCounters& counters = cache_->counters();
  const auto pool = CVPixelBufferPool::make(48, 48, kNV12);
  const auto picture = painted(pool->makePixelBuffer(), 1);
  (void)record(*cache_, picture);
  EXPECT_LT(differenceWhenDrawn(picture), kTolerance);
  EXPECT_EQ(counters.uploads, 4U);

  // Two at once, of which the one recorded later goes first and the other one never or last.
  for (const bool isSent : {false, true}) {
    const auto next = painted(pool->makePixelBuffer(), isSent ? 2 : 3);
    Drawing first = record(*cache_, next);
    EXPECT_LT(differenceWhenDrawn(next), kTolerance);
    if (!isSent) continue;
    first.commands->commit();
    const auto shown = first.surface->contents();
    ASSERT_TRUE(shown);
    EXPECT_LT(difference(*shown, *next), kTolerance);
    EXPECT_LT(differenceWhenDrawn(next), kTolerance);
  }
  EXPECT_EQ(counters.uploads, 12U);
}

TEST_F(TextureCaches, haveRoomForManyViewsOfDifferentSizes) {
  constexpr std::size_t views = 6;
  std::vector<std::shared_ptr<GpuTextureCache>> caches;
  std::vector<std::shared_ptr<CVPixelBufferPool>> pools;
  for (std::size_t i = 0; i < views; ++i) {
    caches.push_back(makeCache());
    pools.push_back(CVPixelBufferPool::make(64 + 16 * i, 48, kNV12));
  }
  std::uint64_t before = 0;
  for (int frame = 0; frame < 12; ++frame) {
    if (frame == 6) before = cache_->counters().allocations;
    for (std::size_t i = 0; i < views; ++i) {
      (void)draw(*caches[i], painted(pools[i]->makePixelBuffer(), 1))->contents();
    }
  }
  EXPECT_EQ(cache_->counters().allocations, before);
}

TEST_F(TextureCaches, keepTexturesOfAPassThatDrawsNothing) {
  const auto surface = device_->makeSurface(std::nullopt);
  const auto commands = queue_->commandBuffer();
  {
    const auto other = makeCache();
    const auto picture = painted(CVPixelBufferPool::make(1024, 1024, kNV12)->makePixelBuffer(), 1);
    const auto textures = metal::makeTextures(picture, *other, "[T]");
    const auto drawable = surface->nextDrawable(64, 64);
    const auto encoder = commands->renderCommandEncoder({drawable->texture(), {}});
    encoder->setFragmentTexture(textures->textures[0], 0);
    encoder->endEncoding();
    commands->presentDrawable(drawable);
    commands->commit();
  }
  cache_.reset();
  EXPECT_TRUE(surface->contents());
}

TEST_F(TextureCaches, showNothingThatWasNotSentOrNotRead) {
  static int failing;
  static PFN_vkQueueSubmit submit;
  static PFN_vkWaitForFences wait;
  const auto picture = painted(CVPixelBufferPool::make(64, 48, kNV12)->makePixelBuffer(), 1);
  failing = 1;
  submit = std::exchange(
      vkQueueSubmit, [](VkQueue queue, std::uint32_t n, const VkSubmitInfo* info, VkFence fence) {
        return failing-- > 0 ? VK_ERROR_OUT_OF_DEVICE_MEMORY : submit(queue, n, info, fence);
      });
  const auto unsent = draw(*cache_, picture);
  vkQueueSubmit = submit;
  EXPECT_FALSE(unsent->contents());

  const auto unread = draw(*cache_, picture);
  wait = std::exchange(vkWaitForFences, [](VkDevice device, std::uint32_t n, const VkFence* fences,
                                           VkBool32 all, std::uint64_t time) {
    (void)wait(device, n, fences, all, time);
    return VK_ERROR_DEVICE_LOST;
  });
  EXPECT_FALSE(unread->contents());
  vkWaitForFences = wait;
  const auto said = trouble_.copy();
  EXPECT_THAT(said.front(), testing::HasSubstr("vkQueueSubmit"));
  EXPECT_THAT(said.back(), testing::HasSubstr("vkWaitForFences"));
  trouble_.with([](auto& all) { all.clear(); });
}

TEST_F(TextureCaches, giveNoTexturesOfALostProcessorOrOfWhatIsNoPlane) {
  std::vector<std::string> said;
  const auto gpu = Gpu::open([&](const std::string& text) { said.push_back(text); });
  GpuTextureCache cache(std::make_shared<SharedGpu>(gpu, nullptr));
  const auto picture = painted(CVPixelBufferPool::make(32, 16, kNV12)->makePixelBuffer(), 1);
  std::unique_ptr<CVMetalTexture> texture;
  const auto wrap = [&](const CVPixelBufferRef& image, MTLPixelFormat format, std::size_t width,
                        std::size_t plane) {
    return cache.CVMetalTextureCacheCreateTextureFromImage(image, format, width, 16 >> plane, plane, texture);
  };
  CVPixelBufferRef packed;
  ASSERT_EQ(CVPixelBufferCreate(32, 16, kCVPixelFormatType_32BGRA, packed), kCVReturnSuccess);
  EXPECT_EQ(wrap(nullptr, MTLPixelFormat::r8Unorm, 32, 0), kCVReturnInvalidPixelFormat);
  EXPECT_EQ(wrap(packed, MTLPixelFormat::r8Unorm, 32, 0), kCVReturnInvalidPixelFormat);
  EXPECT_EQ(wrap(picture, MTLPixelFormat::rg8Unorm, 32, 0), kCVReturnInvalidPixelFormat);
  EXPECT_EQ(wrap(picture, MTLPixelFormat::r8Unorm, 8, 2), kCVReturnInvalidPixelFormat);
  EXPECT_EQ(wrap(picture, MTLPixelFormat::rg8Unorm, 32, 1), kCVReturnInvalidSize);
  EXPECT_FALSE(texture);
  EXPECT_EQ(wrap(picture, MTLPixelFormat::r8Unorm, 32, 0), kCVReturnSuccess);
  EXPECT_FALSE(gpu->check(VK_ERROR_DEVICE_LOST, "this"));
  EXPECT_EQ(wrap(picture, MTLPixelFormat::r8Unorm, 32, 0), kCVReturnAllocationFailed);
  EXPECT_THAT(said, testing::SizeIs(1));
}

}  // namespace
}  // namespace QelUtilVideo
