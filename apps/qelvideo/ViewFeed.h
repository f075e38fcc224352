#pragma once

#include <QelUtilVideo/CGImagePropertyOrientation.h>
#include <QelUtilVideo/platform/PixelBufferConverter.h>

#include <memory>

#include "FrameConsumer.h"

namespace QelKit {
class QelVideoImageBuffer;
}

namespace qelvideo {

/// Puts captured frames, converted to what a view draws, into a frame container.
class ViewFeed final : public FrameConsumer {
 public:
  ViewFeed(std::shared_ptr<QelKit::QelVideoImageBuffer> container,
           QelUtilVideo::CGImagePropertyOrientation orientation);

  Verdict consume(const QelUtilVideo::CVPixelBufferRef& frame, double timestamp) override;

 private:
  std::shared_ptr<QelKit::QelVideoImageBuffer> container_;
  QelUtilVideo::CGImagePropertyOrientation orientation_;
  QelUtilVideo::PixelBufferConverter converter_;
};

}  // namespace qelvideo
