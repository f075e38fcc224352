#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>
#include <QelUtilVideo/platform/Dictionary.h>
#include <QelUtilVideo/platform/NSError.h>

#include <memory>

namespace QelUtilVideo {

class Capturable;

/// Receives what a running source has to say; implemented by the host. The first argument is the source.
///
/// Threads: frames arrive on a serial queue of the capture's own, one after another. The other methods
/// are called on the thread where the event happens: the one that called `start` or `stop`, the main
/// thread for what a capture of a display or window finds out by itself, a queue or thread of its own for
/// what a camera or another device does. These events never overtake one
/// another: when two threads cause events at once, one of them may deliver both. No frame comes before the
/// `capturableDidStartRunning` of its capture or goes to the delegate of the next one. A frame that was
/// being delivered when another thread stopped the capture may still be in the method's hands afterwards.
/// No lock is held; every method may call `start` and `stop` or drop the last reference to the source.
///
/// A method that throws is reported to the system log; the capture goes on.
class QEL_EXPORT CapturableOutputDelegate {
 public:
  virtual ~CapturableOutputDelegate() = default;

  virtual void capturableWillStartRunning(const std::shared_ptr<Capturable>& capturable) = 0;
  virtual void capturableDidFailToStartRunning(const std::shared_ptr<Capturable>& capturable,
                                               const NSError& error) = 0;
  virtual void capturableDidStartRunning(const std::shared_ptr<Capturable>& capturable) = 0;
  /// `error` is null when the capture was asked to stop.
  virtual void capturableDidStopRunning(const std::shared_ptr<Capturable>& capturable,
                                        const NSError* error) = 0;
  /// The source has nothing to give for a while. `userInfo` may be null.
  virtual void capturableDidBeginInterruption(const std::shared_ptr<Capturable>& capturable,
                                              const Dictionary* userInfo) = 0;
  virtual void capturableDidEndInterruption(const std::shared_ptr<Capturable>& capturable) = 0;
  /// A frame. Of a display or window: 32BGRA; a display's is opaque, its fourth byte means nothing, a
  /// window's has alpha, premultiplied: 0 where no window is. Of a camera or another device: bi-planar 4:2:0
  /// in video range. `timestamp` is in seconds of the media clock. The buffer is borrowed for the call: keep
  /// a copy of the reference to keep the picture. Frames that come while the method is busy wait, however
  /// many, and take memory, those of devices excepted, of which the latest one waits: hand long work to
  /// another thread.
  virtual void capturableDidOutput(const std::shared_ptr<Capturable>& capturable,
                                   const CVPixelBufferRef& pixelBuffer, double timestamp) = 0;
};

}  // namespace QelUtilVideo
