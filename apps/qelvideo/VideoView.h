#pragma once

#include <QelUtilVideo/platform/CGImage.h>

#include <memory>

#include "FrameHolder.h"
#include "ViewOptions.h"

namespace QelUtilVideo {
class NSWindow;
class RenderView;
}  // namespace QelUtilVideo

namespace qelvideo {

class HostLoop;

/// A `RenderView` that fills a window, and the frame that it shows. Main thread.
class VideoView {
 public:
  VideoView(std::shared_ptr<QelUtilVideo::NSWindow> window, const ViewOptions& options);
  VideoView(const VideoView&) = delete;
  VideoView& operator=(const VideoView&) = delete;
  /// Takes the view out of the window.
  ~VideoView();

  [[nodiscard]] const std::shared_ptr<FrameHolder>& frames() const { return frames_; }
  [[nodiscard]] QelUtilVideo::RenderView& view() const { return *view_; }
  /// The picture of the window once it shows the frame that is held now, or a later one. Throws `Failure`
  /// when it does not come to that, as on a machine without a GPU driver; null when interrupted.
  [[nodiscard]] QelUtilVideo::CGImageRef picture(HostLoop& loop) const;

 private:
  class FrameWatch;

  std::shared_ptr<FrameHolder> frames_;
  std::shared_ptr<FrameWatch> watch_;
  std::shared_ptr<QelUtilVideo::NSWindow> window_;
  std::shared_ptr<QelUtilVideo::RenderView> view_;
};

}  // namespace qelvideo
