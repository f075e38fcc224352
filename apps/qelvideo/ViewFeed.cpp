#include "ViewFeed.h"

#include <utility>

#include "Failure.h"

namespace qelvideo {

ViewFeed::ViewFeed(std::shared_ptr<FrameHolder> frames) : frames_(std::move(frames)) {}

FrameConsumer::Verdict ViewFeed::consume(const QelUtilVideo::CVPixelBufferRef& frame, double timestamp) {
  QelUtilVideo::CVPixelBufferRef picture = converter_.convert(frame);
  if (!picture) throw Failure("there is no memory for a picture of the source");
  frames_->show(std::move(picture), timestamp);
  return Verdict::more;
}

}  // namespace qelvideo
