#include "platform/linux/vulkan/SharedGpu.h"

#include <utility>

namespace QelUtilVideo {

SharedGpu::SharedGpu(std::shared_ptr<Gpu> gpu, TroubleHandler trouble)
    : gpu_(std::move(gpu)), planes_(std::make_shared<GpuPlanes>(gpu_)), trouble_(std::move(trouble)) {}

void SharedGpu::renew() {
  if (!gpu_->isLost() || !gpu_->hasWorked()) return;
  auto opened = Gpu::open(trouble_);
  if (trouble_)
    trouble_(opened ? "the graphics processor was lost and opened anew" : "the graphics processor is lost");
  if (opened) {
    gpu_ = std::move(opened);
    planes_ = std::make_shared<GpuPlanes>(gpu_);
  } else {
    gpu_->forgetProgress();
  }
}

}  // namespace QelUtilVideo
