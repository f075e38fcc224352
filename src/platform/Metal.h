#pragma once

#include <memory>

namespace QelUtilVideo {

/// A graphics processor that the default presentation backend can use.
class MTLDevice {
 public:
  virtual ~MTLDevice() = default;
};

/// Any thread.
class Metal {
 public:
  virtual ~Metal() = default;
  /// The preferred device, or null when the machine has none.
  [[nodiscard]] virtual std::shared_ptr<MTLDevice> MTLCreateSystemDefaultDevice() = 0;
};

}  // namespace QelUtilVideo
