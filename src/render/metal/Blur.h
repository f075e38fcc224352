#pragma once

#include "platform/Metal.h"
#include "render/metal/PlaneTextures.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {
class Platform;
}

namespace QelUtilVideo::metal {

/// Turns the planes of a frame into one blurred RGB texture: by the processor's ready-made Gaussian, or by
/// two passes of a kernel of our own. What cannot be set up ends the process. Main thread.
class Blur {
 public:
  /// Which of the two is settled here.
  Blur(Platform& platform, std::shared_ptr<MTLDevice> device, std::string logName);
  Blur(const Blur&) = delete;
  Blur& operator=(const Blur&) = delete;
  ~Blur();

  /// Makes ready for a frame whose luma has that size in pixels. False when there is nothing to blur.
  [[nodiscard]] bool update(std::size_t width, std::size_t height, float blurRadius);
  /// After an update that answered true.
  void encode(MTLCommandBuffer& commands, const PlaneTextures& planes);
  /// The blurred picture, once encoded.
  [[nodiscard]] const std::shared_ptr<MTLTexture>& output() const { return textures_[mpsEnabled_ ? 1 : 0]; }
  /// Whether the ready-made one does it.
  [[nodiscard]] bool mpsEnabled() const { return mpsEnabled_; }

 private:
  using Buffers = std::vector<std::shared_ptr<MTLBuffer>>;
  using Textures = std::vector<std::shared_ptr<MTLTexture>>;

  [[nodiscard]] bool dispatchesThreads() const;
  [[nodiscard]] std::shared_ptr<MTLComputePipelineState> makeComputePipeline(const std::string& baseName);
  void makeWeightsTexture();
  void makeBlurTextures();
  void encodeComputePipeline(MTLCommandBuffer& commands,
                             const std::shared_ptr<MTLComputePipelineState>& pipeline,
                             const Textures& textures);
  void dispatchComputePipeline(MTLComputeCommandEncoder& encoder,
                               const std::shared_ptr<MTLComputePipelineState>& pipeline,
                               const Buffers& buffers, const Textures& textures);

  Platform& platform_;
  const std::shared_ptr<MTLDevice> device_;
  const std::string logName_;
  const bool mpsEnabled_;
  std::shared_ptr<MTLComputePipelineState> computeYUV2RGB_;
  std::shared_ptr<MTLComputePipelineState> computeBlur_;
  std::shared_ptr<MTLTexture> weightsTexture_;
  std::shared_ptr<MTLBuffer> horzDirection_, vertDirection_;
  std::unique_ptr<MPSImageGaussianBlur> mpsBlur_;
  std::size_t radius_ = 0;              ///< pixels
  std::size_t width_ = 0, height_ = 0;  ///< of the textures
  std::array<std::shared_ptr<MTLTexture>, 2> textures_;
};

}  // namespace QelUtilVideo::metal
