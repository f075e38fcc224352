#pragma once

#include "capture/EventSequencer.h"
#include "platform/Result.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>
#include <QelUtilVideo/platform/NSObject.h>

namespace QelUtilVideo::windowlist {

/// What a timed session asks for frames.
class CaptureSource : public virtual NSObject {
 public:
  /// A frame; null when there is nothing to capture for the moment; an error when the source is gone,
  /// which ends the session. Called on the main thread.
  virtual Result<CVPixelBufferRef> capture() = 0;

  /// The events of the source's sessions: those of one session come after those of the one before.
  [[nodiscard]] EventSequencer& events() { return events_; }

 private:
  EventSequencer events_;
};

}  // namespace QelUtilVideo::windowlist
