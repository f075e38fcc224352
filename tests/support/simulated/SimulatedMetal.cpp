#include "support/simulated/SimulatedMetal.h"

#include <span>

namespace QelUtilVideo {

namespace {

using Record = std::shared_ptr<MetalRecord>;

struct Bytes final : MTLBuffer {
  [[nodiscard]] std::size_t length() const override { return floats.size() * sizeof(float); }
  std::vector<float> floats;
};

struct Function final : MTLFunction {
  std::string name;
};

struct Pipeline final : MTLRenderPipelineState {
  std::string name;
};

struct Library final : MTLLibrary {
  std::string missing;
  std::shared_ptr<MTLFunction> newFunctionWithName(const std::string& name) override {
    if (name == missing) return nullptr;
    auto function = std::make_shared<Function>();
    function->name = name;
    return function;
  }
};

struct Drawable final : CAMetalDrawable {
  [[nodiscard]] std::shared_ptr<MTLTexture> texture() const override { return picture; }
  [[nodiscard]] bool isPresented() const override { return wasPresented; }
  std::shared_ptr<MTLTexture> picture;
  bool wasPresented = false;
};

class Encoder final : public MTLRenderCommandEncoder {
 public:
  Encoder(Record record, const MTLRenderPassDescriptor& descriptor) : record_(std::move(record)) {
    pass_.clearColor = descriptor.clearColor;
    pass_.target = descriptor.texture;
  }
  void setRenderPipelineState(std::shared_ptr<MTLRenderPipelineState> state) override {
    pass_.pipeline = static_cast<const Pipeline&>(*state).name;
  }
  void setVertexBuffer(std::shared_ptr<MTLBuffer> buffer, std::size_t, std::size_t index) override {
    pass_.vertexBuffers.resize(std::max(pass_.vertexBuffers.size(), index + 1));
    pass_.vertexBuffers[index] = static_cast<const Bytes&>(*buffer).floats;
  }
  void setFragmentTexture(std::shared_ptr<MTLTexture> texture, std::size_t index) override {
    pass_.textures.resize(std::max(pass_.textures.size(), index + 1));
    pass_.textures[index] = std::move(texture);
  }
  void drawPrimitives(MTLPrimitiveType, std::size_t start, std::size_t count) override {
    pass_.vertices = count - start;
  }
  void endEncoding() override { record_->passes.push_back(pass_); }

 private:
  const Record record_;
  MetalRecord::Pass pass_;
};

class Commands final : public MTLCommandBuffer {
 public:
  explicit Commands(Record record) : record_(std::move(record)) {}
  [[nodiscard]] const std::string& label() const override { return label_; }
  void setLabel(const std::string& label) override { label_ = label; }
  std::unique_ptr<MTLRenderCommandEncoder> renderCommandEncoder(
      const MTLRenderPassDescriptor& descriptor) override {
    if (record_->hasNoEncoder) return nullptr;
    return std::make_unique<Encoder>(record_, descriptor);
  }
  void presentDrawable(std::shared_ptr<CAMetalDrawable> drawable) override {
    static_cast<Drawable&>(*drawable).wasPresented = true;
    record_->presented.push_back(drawable->texture());
  }
  void commit() override { record_->labels.push_back(label_); }

 private:
  const Record record_;
  std::string label_;
};

struct Queue final : MTLCommandQueue {
  explicit Queue(Record happened) : record(std::move(happened)) {}
  std::shared_ptr<MTLCommandBuffer> commandBuffer() override {
    return record->hasNoCommandBuffer ? nullptr : std::make_shared<Commands>(record);
  }
  const Record record;
};

struct Wrapper final : CVMetalTexture {
  [[nodiscard]] std::shared_ptr<MTLTexture> CVMetalTextureGetTexture() const override { return texture; }
  std::shared_ptr<MTLTexture> texture;
};

struct Cache final : CVMetalTextureCache {
  explicit Cache(Record happened) : record(std::move(happened)) {}
  CVReturn CVMetalTextureCacheCreateTextureFromImage(const CVPixelBufferRef& image, MTLPixelFormat format,
                                                     std::size_t width, std::size_t height, std::size_t plane,
                                                     std::unique_ptr<CVMetalTexture>& texture) override {
    if (record->wrapping != kCVReturnSuccess) return record->wrapping;
    if (CVPixelBufferGetPlaneCount(*image) == 0) return kCVReturnInvalidArgument;
    auto wrapped = std::make_shared<MetalRecord::Texture>(width, height, format, plane);
    wrapped->image = image;
    auto wrapper = std::make_unique<Wrapper>();
    wrapper->texture = std::move(wrapped);
    texture = std::move(wrapper);
    return kCVReturnSuccess;
  }
  const Record record;
};

struct Surface final : MetalSurface {
  explicit Surface(Record happened) : record(std::move(happened)) {}
  std::shared_ptr<CAMetalDrawable> nextDrawable(std::size_t width, std::size_t height) override {
    ++record->asked;
    if (record->hasNoDrawable) return nullptr;
    record->drawableSize = {static_cast<double>(width), static_cast<double>(height)};
    auto drawable = std::make_shared<Drawable>();
    drawable->picture = std::make_shared<MetalRecord::Texture>(width, height, MTLPixelFormat::bgra8Unorm, 0U);
    return drawable;
  }
  [[nodiscard]] bool isUsable() const override { return true; }
  CGImageRef contents() override { return nullptr; }
  const Record record;
};

class Device final : public MTLDevice {
 public:
  explicit Device(Record record) : record_(std::move(record)) {}
  std::shared_ptr<MTLCommandQueue> newCommandQueue() override {
    if (record_->hasNoQueue) return nullptr;
    ++record_->queues;
    return std::make_shared<Queue>(record_);
  }
  std::shared_ptr<MTLBuffer> newBufferWithBytes(std::span<const std::byte> bytes) override {
    if (record_->hasNoBuffer) return nullptr;
    ++record_->buffers;
    auto buffer = std::make_shared<Bytes>();
    buffer->floats.resize(bytes.size() / sizeof(float));
    std::memcpy(buffer->floats.data(), bytes.data(), bytes.size());
    return buffer;
  }
  Result<std::shared_ptr<MTLLibrary>> newDefaultLibraryWithBundle() override {
    if (record_->hasNoLibrary) return NSError{"test", 1, "no library"};
    ++record_->libraries;
    auto library = std::make_shared<Library>();
    library->missing = record_->missingFunction;
    return std::shared_ptr<MTLLibrary>(std::move(library));
  }
  Result<std::shared_ptr<MTLRenderPipelineState>> newRenderPipelineState(
      const MTLRenderPipelineDescriptor& descriptor) override {
    if (!descriptor.vertexFunction || !descriptor.fragmentFunction) return NSError{"test", 2, "no function"};
    auto pipeline = std::make_shared<Pipeline>();
    pipeline->name = static_cast<const Function&>(*descriptor.vertexFunction).name + "/" +
                     static_cast<const Function&>(*descriptor.fragmentFunction).name;
    return std::shared_ptr<MTLRenderPipelineState>(std::move(pipeline));
  }
  std::shared_ptr<CVMetalTextureCache> CVMetalTextureCacheCreate() override {
    if (record_->hasNoCache) return nullptr;
    ++record_->caches;
    return std::make_shared<Cache>(record_);
  }
  std::unique_ptr<MetalSurface> makeSurface(const std::optional<NativeWindow>& window) override {
    record_->surfaces.push_back(window.has_value());
    return std::make_unique<Surface>(record_);
  }

 private:
  const Record record_;
};

}  // namespace

std::shared_ptr<MTLDevice> SimulatedMetal::MTLCreateSystemDefaultDevice() {
  return present_ ? std::make_shared<Device>(record_) : nullptr;
}

}  // namespace QelUtilVideo
