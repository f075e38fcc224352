#pragma once

#include "platform/NativeWindow.h"
#include "platform/Result.h"

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace QelUtilVideo {

// A graphics processor in the words of Metal, as narrow as its callers. Objects are held by
// `std::shared_ptr`; what a command buffer refers to lives until the processor is done with it. Main thread,
// but the last reference to any of them may be dropped on any. None of the operations waits for the
// processor, save where said, and none fails at run time in a way that ends the process: what a lost
// processor is asked for is made and does nothing, and there are no more drawables.

enum class MTLPixelFormat : std::uint32_t {
  r8Unorm = 10,
  rg8Unorm = 30,
  r32Float = 55,
  bgra8Unorm = 80,
  rgba16Float = 115
};

/// What shaders do with a texture: any of these, by |.
enum MTLTextureUsage : std::uint32_t { MTLTextureUsageShaderRead = 1, MTLTextureUsageShaderWrite = 2 };

/// What a processor can do.
enum class MTLFeatureSet : std::uint32_t { macOS_GPUFamily1_v3 = 10003 };

struct MTLSize {
  std::size_t width = 0, height = 0, depth = 1;
  friend bool operator==(const MTLSize&, const MTLSize&) = default;
};

struct MTLOrigin {
  std::size_t x = 0, y = 0, z = 0;
};

struct MTLRegion {
  MTLOrigin origin;
  MTLSize size;
};

/// One level, not mipmapped.
struct MTLTextureDescriptor {
  MTLPixelFormat pixelFormat = MTLPixelFormat::bgra8Unorm;
  std::size_t width = 1, height = 1;
  std::uint32_t usage = MTLTextureUsageShaderRead;
};

struct MTLClearColor {
  double red = 0, green = 0, blue = 0, alpha = 1;
  friend bool operator==(const MTLClearColor&, const MTLClearColor&) = default;
};

/// Bytes that shaders read; fixed when it is made.
class MTLBuffer {
 public:
  virtual ~MTLBuffer() = default;
  [[nodiscard]] virtual std::size_t length() const = 0;
};

/// A picture that shaders read or that is drawn on, in pixels; row 0 is the topmost one.
class MTLTexture {
 public:
  virtual ~MTLTexture() = default;
  [[nodiscard]] virtual std::size_t width() const = 0;
  [[nodiscard]] virtual std::size_t height() const = 0;
  [[nodiscard]] virtual MTLPixelFormat pixelFormat() const = 0;
  /// Copies the bytes to a texture that `newTextureWithDescriptor` made, before commands use it: all of level
  /// 0. Does nothing where they are too few, or to another texture.
  virtual void replaceRegion(const MTLRegion& region, std::size_t mipmapLevel,
                             std::span<const std::byte> bytes, std::size_t bytesPerRow) = 0;
};

class MTLFunction {
 public:
  virtual ~MTLFunction() = default;
};

class MTLLibrary {
 public:
  virtual ~MTLLibrary() = default;
  /// Null when there is none of that name.
  [[nodiscard]] virtual std::shared_ptr<MTLFunction> newFunctionWithName(const std::string& name) = 0;
};

struct MTLRenderPipelineDescriptor {
  std::shared_ptr<MTLFunction> vertexFunction;
  std::shared_ptr<MTLFunction> fragmentFunction;
  MTLPixelFormat colorAttachmentPixelFormat = MTLPixelFormat::bgra8Unorm;
};

class MTLRenderPipelineState {
 public:
  virtual ~MTLRenderPipelineState() = default;
};

class MTLComputePipelineState {
 public:
  virtual ~MTLComputePipelineState() = default;
  /// Threads that run at a time, side by side.
  [[nodiscard]] virtual std::size_t threadExecutionWidth() const = 0;
  /// A multiple of it. Threadgroups of that pipeline are so large, and as wide.
  [[nodiscard]] virtual std::size_t maxTotalThreadsPerThreadgroup() const = 0;
};

/// What is drawn on; it is cleared first and kept at the end.
struct MTLRenderPassDescriptor {
  std::shared_ptr<MTLTexture> texture;
  MTLClearColor clearColor;
};

enum class MTLPrimitiveType : std::uint8_t { triangleStrip };

class MTLRenderCommandEncoder {
 public:
  virtual ~MTLRenderCommandEncoder() = default;
  virtual void setRenderPipelineState(std::shared_ptr<MTLRenderPipelineState> state) = 0;
  virtual void setVertexBuffer(std::shared_ptr<MTLBuffer> buffer, std::size_t offset, std::size_t index) = 0;
  virtual void setFragmentTexture(std::shared_ptr<MTLTexture> texture, std::size_t index) = 0;
  virtual void drawPrimitives(MTLPrimitiveType type, std::size_t vertexStart, std::size_t vertexCount) = 0;
  /// Nothing else may be called after it.
  virtual void endEncoding() = 0;
};

class MTLDevice;

/// Runs kernels one after another; each sees what those before it wrote.
class MTLComputeCommandEncoder {
 public:
  virtual ~MTLComputeCommandEncoder() = default;
  [[nodiscard]] virtual MTLDevice& device() const = 0;
  virtual void setComputePipelineState(std::shared_ptr<MTLComputePipelineState> state) = 0;
  /// At indices 0, 1, ..., from their beginnings; they replace all that were bound.
  virtual void setBuffers(std::span<const std::shared_ptr<MTLBuffer>> buffers) = 0;
  virtual void setTextures(std::span<const std::shared_ptr<MTLTexture>> textures) = 0;
  /// One thread for each place of the grid.
  virtual void dispatchThreads(const MTLSize& threads, const MTLSize& threadsPerThreadgroup) = 0;
  /// Whole threadgroups.
  virtual void dispatchThreadgroups(const MTLSize& threadgroups, const MTLSize& threadsPerThreadgroup) = 0;
  /// Nothing else may be called after it.
  virtual void endEncoding() = 0;
};

/// A picture of a view that can be drawn and then shown. It may outlive its surface, and shows nothing then.
class CAMetalDrawable {
 public:
  virtual ~CAMetalDrawable() = default;
  [[nodiscard]] virtual std::shared_ptr<MTLTexture> texture() const = 0;
  /// It was handed to a command buffer to be shown.
  [[nodiscard]] virtual bool isPresented() const = 0;
};

class MTLCommandBuffer {
 public:
  virtual ~MTLCommandBuffer() = default;
  [[nodiscard]] virtual const std::string& label() const = 0;
  virtual void setLabel(const std::string& label) = 0;
  /// Null when there is nothing to draw on. One at a time.
  [[nodiscard]] virtual std::unique_ptr<MTLRenderCommandEncoder> renderCommandEncoder(
      const MTLRenderPassDescriptor& descriptor) = 0;
  /// Null when there are no kernels to be run. One at a time.
  [[nodiscard]] virtual std::unique_ptr<MTLComputeCommandEncoder> computeCommandEncoder() = 0;
  /// Shows it when the commands were carried out.
  virtual void presentDrawable(std::shared_ptr<CAMetalDrawable> drawable) = 0;
  virtual void commit() = 0;
};

class MTLCommandQueue {
 public:
  virtual ~MTLCommandQueue() = default;
  /// Null when the processor takes no more.
  [[nodiscard]] virtual std::shared_ptr<MTLCommandBuffer> commandBuffer() = 0;
};

/// One plane of a pixel buffer as a texture.
class CVMetalTexture {
 public:
  virtual ~CVMetalTexture() = default;
  /// May be null. It keeps the pixel buffer.
  [[nodiscard]] virtual std::shared_ptr<MTLTexture> CVMetalTextureGetTexture() const = 0;
};

/// Wraps planes of pixel buffers, if possible without a copy; a buffer that was not written to since is
/// wrapped once.
class CVMetalTextureCache {
 public:
  virtual ~CVMetalTextureCache() = default;
  /// Sizes in pixels of the plane. Errors: the buffer has no such plane, of that size and format; no memory.
  [[nodiscard]] virtual CVReturn CVMetalTextureCacheCreateTextureFromImage(
      const CVPixelBufferRef& image, MTLPixelFormat format, std::size_t width, std::size_t height,
      std::size_t plane, std::unique_ptr<CVMetalTexture>& texture) = 0;
};

/// Where drawables of one view come from.
class MetalSurface {
 public:
  virtual ~MetalSurface() = default;
  /// A drawable of that size in pixels, at least 1 x 1, or null: none is free just now, or the surface is not
  /// usable any more. Does not wait for one.
  [[nodiscard]] virtual std::shared_ptr<CAMetalDrawable> nextDrawable(std::size_t width,
                                                                      std::size_t height) = 0;
  /// False: it will have no drawable any more, and another surface has to be made.
  [[nodiscard]] virtual bool isUsable() const = 0;
  /// What was shown last, in pixels; null before the first. Waits for the processor.
  [[nodiscard]] virtual CGImageRef contents() = 0;
};

enum class MPSImageEdgeMode : std::uint8_t { zero = 0, clamp = 1 };

/// A Gaussian blur that is made for the processor.
class MPSImageGaussianBlur {
 public:
  virtual ~MPSImageGaussianBlur() = default;
  /// What lies around the picture; zero at first.
  virtual void setEdgeMode(MPSImageEdgeMode mode) = 0;
  /// From one texture to another one of the same size, which shaders may write.
  virtual void encodeToCommandBuffer(MTLCommandBuffer& commands, const std::shared_ptr<MTLTexture>& source,
                                     const std::shared_ptr<MTLTexture>& destination) = 0;
};

/// A graphics processor that the default presentation backend can use.
class MTLDevice {
 public:
  virtual ~MTLDevice() = default;
  /// Null when it cannot be made.
  [[nodiscard]] virtual std::shared_ptr<MTLCommandQueue> newCommandQueue() = 0;
  /// Copies the bytes; null when there is no memory.
  [[nodiscard]] virtual std::shared_ptr<MTLBuffer> newBufferWithBytes(std::span<const std::byte> bytes) = 0;
  /// The library of shaders that lies in the library's own bundle, or why it cannot be loaded.
  [[nodiscard]] virtual Result<std::shared_ptr<MTLLibrary>> newDefaultLibraryWithBundle() = 0;
  [[nodiscard]] virtual Result<std::shared_ptr<MTLRenderPipelineState>> newRenderPipelineState(
      const MTLRenderPipelineDescriptor& descriptor) = 0;
  [[nodiscard]] virtual bool supportsFeatureSet(MTLFeatureSet set) const = 0;
  /// Null when there is no memory, or a side is too large.
  [[nodiscard]] virtual std::shared_ptr<MTLTexture> newTextureWithDescriptor(
      const MTLTextureDescriptor& descriptor) = 0;
  [[nodiscard]] virtual Result<std::shared_ptr<MTLComputePipelineState>> newComputePipelineStateWithFunction(
      const std::shared_ptr<MTLFunction>& function) = 0;
  /// Whether it has blurs of its own.
  [[nodiscard]] virtual bool MPSSupportsMTLDevice() = 0;
  /// `sigma` in pixels, above 0. Null where it has none.
  [[nodiscard]] virtual std::unique_ptr<MPSImageGaussianBlur> newMPSImageGaussianBlur(float sigma) = 0;
  /// Null when it cannot be made.
  [[nodiscard]] virtual std::shared_ptr<CVMetalTextureCache> CVMetalTextureCacheCreate() = 0;
  /// On a window, or off screen. Null when the device cannot draw there.
  [[nodiscard]] virtual std::unique_ptr<MetalSurface> makeSurface(
      const std::optional<NativeWindow>& window) = 0;
};

/// Any thread.
class Metal {
 public:
  virtual ~Metal() = default;
  /// The preferred device, or null when the machine has none.
  [[nodiscard]] virtual std::shared_ptr<MTLDevice> MTLCreateSystemDefaultDevice() = 0;
};

}  // namespace QelUtilVideo
