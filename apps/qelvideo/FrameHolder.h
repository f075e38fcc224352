#pragma once

#include <QelUtilVideo/CGImagePropertyOrientation.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <memory>
#include <mutex>

namespace QelKit {
class QelVideoImageBuffer;
}

namespace qelvideo {

/// The frame that a view shows and how it is turned. A change of orientation shows at once, whether or not
/// another frame comes. Any thread.
class FrameHolder {
 public:
  explicit FrameHolder(QelUtilVideo::CGImagePropertyOrientation orientation);

  /// What the view reads.
  [[nodiscard]] const std::shared_ptr<QelKit::QelVideoImageBuffer>& container() const { return container_; }
  /// Replaces the frame. `timestamp` is in seconds and above that of the frame before.
  void show(QelUtilVideo::CVPixelBufferRef picture, double timestamp);
  void setOrientation(QelUtilVideo::CGImagePropertyOrientation orientation);
  /// Has the frame drawn once more, as a later one; its new timestamp, 0 without a frame.
  double showAgain();

 private:
  double restamp();

  const std::shared_ptr<QelKit::QelVideoImageBuffer> container_;
  std::mutex mutex_;
  QelUtilVideo::CGImagePropertyOrientation orientation_;
};

}  // namespace qelvideo
