#pragma once

#include "platform/CallSafely.h"
#include "platform/linux/vulkan/GpuPlanes.h"

#include <memory>

namespace QelUtilVideo {

/// The graphics processor of a device, which is opened anew when it was lost. Main thread.
class SharedGpu {
 public:
  SharedGpu(std::shared_ptr<Gpu> gpu, TroubleHandler trouble);

  /// Never null; may be lost by now.
  [[nodiscard]] const std::shared_ptr<Gpu>& opened() const { return gpu_; }
  /// The pictures that it shows. Never null.
  [[nodiscard]] const std::shared_ptr<GpuPlanes>& planes() const { return planes_; }
  /// Opens a lost one anew, if it did anything but get lost.
  void renew();

 private:
  std::shared_ptr<Gpu> gpu_;
  std::shared_ptr<GpuPlanes> planes_;
  const TroubleHandler trouble_;
};

}  // namespace QelUtilVideo
