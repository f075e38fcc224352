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

struct KernelPipeline final : MTLComputePipelineState {
  [[nodiscard]] std::size_t threadExecutionWidth() const override { return 16; }
  [[nodiscard]] std::size_t maxTotalThreadsPerThreadgroup() const override { return 70; }
  std::string name;
};

class KernelEncoder final : public MTLComputeCommandEncoder {
 public:
  KernelEncoder(Record record, MTLDevice& device) : record_(std::move(record)), device_(device) {
    ++record_->computeEncoders;
  }
  [[nodiscard]] MTLDevice& device() const override { return device_; }
  void setComputePipelineState(std::shared_ptr<MTLComputePipelineState> state) override {
    kernel_.name = static_cast<const KernelPipeline&>(*state).name;
  }
  void setBuffers(std::span<const std::shared_ptr<MTLBuffer>> buffers) override {
    kernel_.buffer.clear();
    for (const auto& buffer : buffers) {
      const auto& floats = static_cast<const Bytes&>(*buffer).floats;
      kernel_.buffer.resize(floats.size());
      std::memcpy(kernel_.buffer.data(), floats.data(), buffer->length());
    }
  }
  void setTextures(std::span<const std::shared_ptr<MTLTexture>> textures) override {
    kernel_.textures.assign(textures.begin(), textures.end());
  }
  void dispatchThreads(const MTLSize& threads, const MTLSize& threadsPerThreadgroup) override {
    dispatch(threads, threadsPerThreadgroup, true);
  }
  void dispatchThreadgroups(const MTLSize& threadgroups, const MTLSize& threadsPerThreadgroup) override {
    dispatch(threadgroups, threadsPerThreadgroup, false);
  }
  void endEncoding() override {}

 private:
  void dispatch(const MTLSize& grid, const MTLSize& group, bool isByThreads) {
    kernel_.grid = grid;
    kernel_.group = group;
    kernel_.isByThreads = isByThreads;
    record_->kernels.push_back(kernel_);
  }

  const Record record_;
  MTLDevice& device_;
  MetalRecord::Kernel kernel_;
};

class OwnBlur final : public MPSImageGaussianBlur {
 public:
  explicit OwnBlur(Record record) : record_(std::move(record)) {}
  void setEdgeMode(MPSImageEdgeMode mode) override { mode_ = mode; }
  void encodeToCommandBuffer(MTLCommandBuffer&, const std::shared_ptr<MTLTexture>& source,
                             const std::shared_ptr<MTLTexture>& destination) override {
    record_->kernels.push_back(
        {mode_ == MPSImageEdgeMode::clamp ? "clamped blur" : "blur", {}, {source, destination}, {}, {}});
  }

 private:
  const Record record_;
  MPSImageEdgeMode mode_ = MPSImageEdgeMode::zero;
};

class Commands final : public MTLCommandBuffer {
 public:
  Commands(Record record, MTLDevice& device) : record_(std::move(record)), device_(device) {}
  [[nodiscard]] const std::string& label() const override { return label_; }
  void setLabel(const std::string& label) override { label_ = label; }
  std::unique_ptr<MTLRenderCommandEncoder> renderCommandEncoder(
      const MTLRenderPassDescriptor& descriptor) override {
    if (record_->hasNoEncoder) return nullptr;
    return std::make_unique<Encoder>(record_, descriptor);
  }
  std::unique_ptr<MTLComputeCommandEncoder> computeCommandEncoder() override {
    if (record_->hasNoComputeEncoder) return nullptr;
    return std::make_unique<KernelEncoder>(record_, device_);
  }
  void presentDrawable(std::shared_ptr<CAMetalDrawable> drawable) override {
    static_cast<Drawable&>(*drawable).wasPresented = true;
    record_->presented.push_back(drawable->texture());
  }
  void commit() override { record_->labels.push_back(label_); }

 private:
  const Record record_;
  MTLDevice& device_;
  std::string label_;
};

struct Queue final : MTLCommandQueue {
  Queue(Record happened, MTLDevice& owner) : record(std::move(happened)), device(owner) {}
  std::shared_ptr<MTLCommandBuffer> commandBuffer() override {
    return record->hasNoCommandBuffer ? nullptr : std::make_shared<Commands>(record, device);
  }
  const Record record;
  MTLDevice& device;
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
    return std::make_shared<Queue>(record_, *this);
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
  [[nodiscard]] bool supportsFeatureSet(MTLFeatureSet) const override { return record_->countsThreads; }
  std::shared_ptr<MTLTexture> newTextureWithDescriptor(const MTLTextureDescriptor& descriptor) override {
    if (descriptor.pixelFormat == record_->missingFormat) return nullptr;
    auto made = std::make_shared<MetalRecord::Texture>(descriptor.width, descriptor.height,
                                                       descriptor.pixelFormat, 0U);
    made->usage = descriptor.usage;
    record_->textures.push_back(made);
    return made;
  }
  Result<std::shared_ptr<MTLComputePipelineState>> newComputePipelineStateWithFunction(
      const std::shared_ptr<MTLFunction>& function) override {
    if (record_->takesNoKernel) return NSError{"test", 3, "no kernels here"};
    auto pipeline = std::make_shared<KernelPipeline>();
    pipeline->name = static_cast<const Function&>(*function).name;
    return std::shared_ptr<MTLComputePipelineState>(std::move(pipeline));
  }
  bool MPSSupportsMTLDevice() override { return !record_->hasNoBlurs; }
  std::unique_ptr<MPSImageGaussianBlur> newMPSImageGaussianBlur(float sigma) override {
    record_->sigmas.push_back(sigma);
    return std::make_unique<OwnBlur>(record_);
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
