#pragma once

#include "platform/CallSafely.h"
#include "platform/OpenGL.h"

#include <memory>

namespace QelUtilVideo {

/// Refreshes a layer at a steady rate, on a thread of its own that ends soon after the driver or
/// the layer does. Refreshes that a slow draw misses are left out. When the process ends, drawing stops
/// before the driver's own libraries are taken down.
class LayerDriver final : public OpenGLLayerDriver {
 public:
  /// Null, and a report to `trouble`, when the system grants no more threads.
  [[nodiscard]] static std::unique_ptr<LayerDriver> make(std::weak_ptr<NSOpenGLLayer> layer,
                                                         double refreshRate, const TroubleHandler& trouble);
  LayerDriver(const LayerDriver&) = delete;
  LayerDriver& operator=(const LayerDriver&) = delete;
  ~LayerDriver() override;
  /// At most a thousand.
  void setRefreshRate(double perSecond) override;

 private:
  class Loop;
  explicit LayerDriver(std::shared_ptr<Loop> loop);

  std::shared_ptr<Loop> loop_;
};

}  // namespace QelUtilVideo
