#pragma once

#include <QelUtilVideo/CGImagePropertyOrientation.h>
#include <QelUtilVideo/RenderViewDataSource.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstddef>
#include <cstdint>
#include <mutex>

namespace QelKit {

/// The record that `QelVideoImageBuffer::getSynchronizedData` fills. The pixel buffer is not
/// transferred: whoever keeps it takes a reference of its own.
struct SynchronizedData {
  double timestamp;  ///< seconds
  QelUtilVideo::CVPixelBuffer* pixelBuffer;
  std::uint32_t orientation;
  std::uint8_t deviceID;
  std::uint8_t deviceType;
};
static_assert(sizeof(SynchronizedData) == 24 && offsetof(SynchronizedData, pixelBuffer) == 8 &&
              offsetof(SynchronizedData, orientation) == 16 && offsetof(SynchronizedData, deviceID) == 20 &&
              offsetof(SynchronizedData, deviceType) == 21);

/// The host's container for the newest frame of one device. One thread writes, any thread reads.
class QEL_EXPORT QelVideoImageBuffer final : public QelUtilVideo::RenderViewDataSource {
 public:
  QelVideoImageBuffer();
  ~QelVideoImageBuffer() override;

  /// Replaces the frame as a whole. `timestamp` is in seconds and above 0; a frame with the timestamp
  /// of the one before counts as the same frame. A null buffer means "no picture".
  void setImage(
      QelUtilVideo::CVPixelBufferRef pixelBuffer, double timestamp,
      QelUtilVideo::CGImagePropertyOrientation orientation = QelUtilVideo::CGImagePropertyOrientation::up,
      std::uint8_t deviceID = 0, std::uint8_t deviceType = 0);

  // RenderViewDataSource
  [[nodiscard]] double timestamp() const override;
  [[nodiscard]] bool hasImage() const override;
  [[nodiscard]] std::shared_ptr<const QelUtilVideo::RenderViewData> data() const override;

  /// Fills the fields with one frame's, as a whole. The returned reference keeps the pixel buffer alive
  /// until the reader has taken its own.
  [[nodiscard]] QelUtilVideo::CVPixelBufferRef getSynchronizedData(SynchronizedData& data) const;

 private:
  struct Frame {
    QelUtilVideo::CVPixelBufferRef pixelBuffer;
    double timestamp = 0;
    std::uint32_t orientation = 0;
    std::uint8_t deviceID = 0;
    std::uint8_t deviceType = 0;
  };
  mutable std::mutex mutex_;
  Frame frame_;
};

}  // namespace QelKit
