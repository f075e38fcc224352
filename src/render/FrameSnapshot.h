#pragma once

#include <QelUtilVideo/CGImagePropertyOrientation.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstdint>
#include <memory>
#include <optional>

namespace QelUtilVideo {

class RenderViewDataSource;

/// A data source's current frame, each property read once. What host code throws ends as a record of the
/// platform's troubles.
struct FrameSnapshot {
  double timestamp = 0;  ///< seconds
  CVPixelBufferRef pixelBuffer;
  CGImagePropertyOrientation orientation = CGImagePropertyOrientation::up;
  std::uint8_t deviceID = 0;
  std::uint8_t deviceType = 0;

  /// None without a source, and of one that has none or throws.
  [[nodiscard]] static std::optional<FrameSnapshot> take(const std::shared_ptr<RenderViewDataSource>& source);
};

/// Who made a frame.
class FrameOrigin {
 public:
  FrameOrigin(const std::shared_ptr<RenderViewDataSource>& source, const FrameSnapshot& frame)
      : bufferID_(source), deviceID_(frame.deviceID), deviceType_(frame.deviceType) {}

  /// Whether the same object and device made that one.
  [[nodiscard]] bool made(const std::shared_ptr<RenderViewDataSource>& source,
                          const FrameSnapshot& frame) const {
    return bufferID_.lock() == source && deviceID_ == frame.deviceID && deviceType_ == frame.deviceType;
  }

 private:
  std::weak_ptr<RenderViewDataSource> bufferID_;
  std::uint8_t deviceID_;
  std::uint8_t deviceType_;
};

}  // namespace QelUtilVideo
