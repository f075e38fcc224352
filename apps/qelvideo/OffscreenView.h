#pragma once

#include <QelUtilVideo/platform/CGImage.h>

#include <memory>

#include "ViewOptions.h"

namespace QelKit {
class QelVideoImageBuffer;
}
namespace QelUtilVideo {
class NSWindow;
class RenderView;
}  // namespace QelUtilVideo

namespace qelvideo {

class HostLoop;

/// A `RenderView` in a window that is on no screen, and the frame container that it shows. Main thread.
class OffscreenView {
 public:
  explicit OffscreenView(const ViewOptions& options);
  OffscreenView(const OffscreenView&) = delete;
  OffscreenView& operator=(const OffscreenView&) = delete;
  ~OffscreenView();

  [[nodiscard]] const std::shared_ptr<QelKit::QelVideoImageBuffer>& container() const { return container_; }
  /// The picture of the window once it shows the frame with this timestamp. Throws `Failure` when it
  /// does not come to that, as on a machine without a GPU driver; null when interrupted.
  [[nodiscard]] QelUtilVideo::CGImageRef pictureShowing(double timestamp, HostLoop& loop) const;

 private:
  class FrameWatch;

  [[nodiscard]] double restamp() const;

  std::shared_ptr<QelKit::QelVideoImageBuffer> container_;
  std::shared_ptr<FrameWatch> watch_;
  std::shared_ptr<QelUtilVideo::NSWindow> window_;
  std::shared_ptr<QelUtilVideo::RenderView> view_;
};

}  // namespace qelvideo
