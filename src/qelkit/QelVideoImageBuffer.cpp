#include <QelKit/QelVideoImageBuffer.h>

#include <utility>

namespace QelKit {

QelVideoImageBuffer::QelVideoImageBuffer() = default;
QelVideoImageBuffer::~QelVideoImageBuffer() = default;

void QelVideoImageBuffer::setImage(QelUtilVideo::CVPixelBufferRef pixelBuffer, double timestamp,
                                   QelUtilVideo::CGImagePropertyOrientation orientation,
                                   std::uint8_t deviceID, std::uint8_t deviceType) {
  Frame frame{std::move(pixelBuffer), timestamp, static_cast<std::uint32_t>(orientation), deviceID,
              deviceType};
  // The frame before goes after the lock: its release callback is the host's.
  const std::lock_guard lock(mutex_);
  std::swap(frame_, frame);
}

QelUtilVideo::CVPixelBufferRef QelVideoImageBuffer::getSynchronizedData(SynchronizedData& data) const {
  const std::lock_guard lock(mutex_);
  data.timestamp = frame_.timestamp;
  data.pixelBuffer = frame_.pixelBuffer.get();
  data.orientation = frame_.orientation;
  data.deviceID = frame_.deviceID;
  data.deviceType = frame_.deviceType;
  return frame_.pixelBuffer;
}

}  // namespace QelKit
