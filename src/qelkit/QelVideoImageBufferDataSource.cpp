#include <QelKit/QelVideoImageBuffer.h>

#include <QelUtilVideo/RenderViewData.h>

#include <cstring>
#include <utility>

namespace QelKit {

using QelUtilVideo::CGImagePropertyOrientation;
using QelUtilVideo::CVPixelBufferRef;
using QelUtilVideo::RenderViewData;

namespace {

class QelVideoRenderViewData final : public RenderViewData {
 public:
  QelVideoRenderViewData(const SynchronizedData& data, CVPixelBufferRef pixelBuffer)
      : timestamp_(data.timestamp),
        pixelBuffer_(std::move(pixelBuffer)),
        orientation_(static_cast<CGImagePropertyOrientation>(data.orientation)),
        deviceID_(data.deviceID),
        deviceType_(data.deviceType) {}

  [[nodiscard]] double timestamp() const override { return timestamp_; }
  [[nodiscard]] CVPixelBufferRef pixelBuffer() const override { return pixelBuffer_; }
  [[nodiscard]] CGImagePropertyOrientation orientation() const override { return orientation_; }
  [[nodiscard]] std::uint8_t deviceID() const override { return deviceID_; }
  [[nodiscard]] std::uint8_t deviceType() const override { return deviceType_; }

 private:
  double timestamp_;
  CVPixelBufferRef pixelBuffer_;
  CGImagePropertyOrientation orientation_;
  std::uint8_t deviceID_;
  std::uint8_t deviceType_;
};

}  // namespace

double QelVideoImageBuffer::timestamp() const {
  const std::lock_guard lock(mutex_);
  return frame_.timestamp;
}

bool QelVideoImageBuffer::hasImage() const {
  const std::lock_guard lock(mutex_);
  return frame_.pixelBuffer != nullptr;
}

std::shared_ptr<const RenderViewData> QelVideoImageBuffer::data() const {
  SynchronizedData record;
  std::memset(&record, 0, sizeof record);
  const CVPixelBufferRef keptAlive = getSynchronizedData(record);
  CVPixelBufferRef own = record.pixelBuffer ? record.pixelBuffer->shared_from_this() : nullptr;
  return std::make_shared<QelVideoRenderViewData>(record, std::move(own));
}

}  // namespace QelKit
