#pragma once

#include "platform/linux/vulkan/GpuTexture.h"
#include "platform/linux/vulkan/Submission.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace QelUtilVideo {

/// The pictures that one surface draws on in turn, off screen, and what became of them. Main thread;
/// destroyed on any.
class DrawnPictures {
 public:
  explicit DrawnPictures(std::shared_ptr<Gpu> gpu) : gpu_(std::move(gpu)) {}

  [[nodiscard]] const std::shared_ptr<Gpu>& gpu() const { return gpu_; }
  /// One that nobody uses, in pixels; null when the processor is busy with two already, is lost, or has no
  /// memory.
  [[nodiscard]] std::shared_ptr<GpuTexture> take(std::size_t width, std::size_t height);
  /// The picture is to be seen when the submission, which was sent, is carried out. Nothing for one of
  /// another processor.
  void show(std::shared_ptr<GpuTexture> picture, Submission& submission);
  /// The one shown last, read back; null before the first. Waits for the processor.
  [[nodiscard]] CGImageRef contents() const;

 private:
  [[nodiscard]] bool isBusy();

  const std::shared_ptr<Gpu> gpu_;
  std::vector<std::shared_ptr<GpuTexture>> pictures_;  ///< all of one size
  std::vector<std::weak_ptr<Submission>> underWay_;
  std::shared_ptr<GpuTexture> shown_;
};

}  // namespace QelUtilVideo
