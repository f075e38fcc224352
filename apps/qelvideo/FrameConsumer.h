#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

namespace qelvideo {

/// Takes the frames of a recording.
class FrameConsumer {
 public:
  enum class Verdict { more, enough };

  virtual ~FrameConsumer() = default;
  /// One frame, in whatever format the source gives. Called on the capture's delivery queue, so it
  /// returns soon. Throws `Failure` when the recording cannot go on.
  virtual Verdict consume(const QelUtilVideo::CVPixelBufferRef& frame, double timestamp) = 0;
};

}  // namespace qelvideo
