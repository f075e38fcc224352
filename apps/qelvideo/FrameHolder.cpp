#include "FrameHolder.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderViewData.h>

#include <utility>

namespace qelvideo {

FrameHolder::FrameHolder(QelUtilVideo::CGImagePropertyOrientation orientation)
    : container_(std::make_shared<QelKit::QelVideoImageBuffer>()), orientation_(orientation) {}

void FrameHolder::show(QelUtilVideo::CVPixelBufferRef picture, double timestamp) {
  const std::lock_guard lock(mutex_);
  container_->setImage(std::move(picture), timestamp, orientation_);
}

void FrameHolder::setOrientation(QelUtilVideo::CGImagePropertyOrientation orientation) {
  const std::lock_guard lock(mutex_);
  if (std::exchange(orientation_, orientation) != orientation) restamp();
}

double FrameHolder::showAgain() {
  const std::lock_guard lock(mutex_);
  return restamp();
}

double FrameHolder::restamp() {
  // Far below any frame's duration, so that the next frame is still a later one.
  constexpr double aMoment = 0.00001;
  const auto frame = container_->data();
  if (!frame->pixelBuffer()) return 0;
  const double timestamp = frame->timestamp() + aMoment;
  container_->setImage(frame->pixelBuffer(), timestamp, orientation_);
  return timestamp;
}

}  // namespace qelvideo
