#pragma once

#include <QelUtilVideo/platform/PixelBufferConverter.h>

#include <memory>

#include "FrameConsumer.h"
#include "FrameHolder.h"

namespace qelvideo {

/// Hands captured frames, converted to what a view draws, to one.
class ViewFeed final : public FrameConsumer {
 public:
  explicit ViewFeed(std::shared_ptr<FrameHolder> frames);

  Verdict consume(const QelUtilVideo::CVPixelBufferRef& frame, double timestamp) override;

 private:
  std::shared_ptr<FrameHolder> frames_;
  QelUtilVideo::PixelBufferConverter converter_;
};

}  // namespace qelvideo
