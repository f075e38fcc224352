#include "VideoView.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <atomic>

#include "Failure.h"
#include "HostLoop.h"

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

/// Seconds within which any driver has drawn a frame.
constexpr double drawTimeout = 20;

constexpr const char* nothingDrawn =
    "nothing was drawn; is there an OpenGL 3.2 driver? Mesa's is in the packages libegl1 and libgl1-mesa-dri";

}  // namespace

/// Knows the newest frame that the view set out to draw.
class VideoView::FrameWatch final : public RenderViewDelegate {
 public:
  explicit FrameWatch(std::shared_ptr<QelKit::QelVideoImageBuffer> container)
      : container_(std::move(container)) {}

  [[nodiscard]] double timestamp() const { return timestamp_; }

  void renderViewWillRender(RenderView&) override {
    timestamp_ = container_->timestamp();
    HostLoop::wake();
  }

 private:
  std::shared_ptr<QelKit::QelVideoImageBuffer> container_;
  std::atomic<double> timestamp_{0};
};

VideoView::VideoView(std::shared_ptr<NSWindow> window, const ViewOptions& options)
    : frames_(std::make_shared<FrameHolder>(options.orientation)),
      watch_(std::make_shared<FrameWatch>(frames_->container())),
      window_(std::move(window)),
      view_(RenderView::make(window_->contentView()->bounds())) {
  view_->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
  view_->setDelegate(watch_);
  view_->setBackgroundColor(options.background);
  view_->setAutomaticallyAdjustsFitMode(options.placing == ViewOptions::Placing::automatic);
  view_->setFitInBounds(options.placing != ViewOptions::Placing::fill);
  view_->setRotateAnimationEnabled(options.animates);
  view_->setBlurRadius(options.blurRadius);
  view_->setImageBuffer(frames_->container());
  static_cast<void>(view_->addContentSizeObserver([](CGSize) { HostLoop::wake(); }));
  window_->contentView()->addSubview(view_);
}

VideoView::~VideoView() { view_->removeFromSuperview(); }

CGImageRef VideoView::picture(HostLoop& loop) const {
  // The view tells before it draws, perhaps with a frame that it took just before this one came. So the
  // picture is handed to it under new timestamps: when it sets out to draw the third, it has presented
  // the second.
  double timestamp = frames_->container()->timestamp();
  for (int turn = 0; turn < 3; ++turn) {
    if (turn > 0) timestamp = frames_->showAgain();
    const auto drawn = [&] { return watch_->timestamp() >= timestamp && view_->contentSize().width > 0; };
    const HostLoop::End end = loop.runUntil(drawn, drawTimeout);
    if (end == HostLoop::End::interrupted) return nullptr;
    if (end == HostLoop::End::timedOut) throw Failure(nothingDrawn);
  }
  CGImageRef picture = window_->image();
  if (!picture) throw Failure(nothingDrawn);
  return picture;
}

}  // namespace qelvideo
