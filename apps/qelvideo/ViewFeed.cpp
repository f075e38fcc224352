#include "ViewFeed.h"

#include <QelKit/QelVideoImageBuffer.h>

#include "Failure.h"

namespace qelvideo {

ViewFeed::ViewFeed(std::shared_ptr<QelKit::QelVideoImageBuffer> container,
                   QelUtilVideo::CGImagePropertyOrientation orientation)
    : container_(std::move(container)), orientation_(orientation) {}

FrameConsumer::Verdict ViewFeed::consume(const QelUtilVideo::CVPixelBufferRef& frame, double timestamp) {
  QelUtilVideo::CVPixelBufferRef picture = converter_.convert(frame);
  if (!picture) throw Failure("there is no memory for a picture of the source");
  container_->setImage(std::move(picture), timestamp, orientation_);
  return Verdict::more;
}

}  // namespace qelvideo
