#pragma once

#include <QelUtilVideo/QelUtilVideo.h>

#include <cstdio>
#include <memory>
#include <vector>

/// A view in a window that shows the first display live, for as long as the object is there: what all these
/// examples have in common. Main thread.
class LiveView {
 public:
  /// `frame` is in points of the window's content, from its lower left corner.
  LiveView(QelUtilVideo::NSWindow& window, QelUtilVideo::CGRect frame)
      : feed_(std::make_shared<Feed>()), displays_(QelUtilVideo::CapturableWindowManager::screens()) {
    const auto view = QelUtilVideo::RenderView::make(frame);
    view->setAutoresizingMask(QelUtilVideo::NSViewWidthSizable | QelUtilVideo::NSViewHeightSizable);
    view->setFitInBounds(true);
    view->setImageBuffer(feed_->frames);
    window.contentView()->addSubview(view);
    if (!displays_.empty()) static_cast<void>(displays_.front()->start(feed_, nullptr));
  }
  LiveView(const LiveView&) = delete;
  LiveView& operator=(const LiveView&) = delete;
  ~LiveView() {
    if (!displays_.empty()) displays_.front()->stop();
  }

 private:
  /// Hands the frames of a capture to a view.
  struct Feed final : QelUtilVideo::CapturableOutputDelegate {
    using Source = std::shared_ptr<QelUtilVideo::Capturable>;

    void capturableWillStartRunning(const Source&) override {}
    void capturableDidFailToStartRunning(const Source&, const QelUtilVideo::NSError& error) override {
      std::fprintf(stderr, "cannot capture: %s\n", error.description().c_str());
    }
    void capturableDidStartRunning(const Source&) override {}
    void capturableDidStopRunning(const Source&, const QelUtilVideo::NSError*) override {}
    void capturableDidBeginInterruption(const Source&, const QelUtilVideo::Dictionary*) override {}
    void capturableDidEndInterruption(const Source&) override {}
    void capturableDidOutput(const Source&, const QelUtilVideo::CVPixelBufferRef& frame,
                             double timestamp) override {
      frames->setImage(converter_.convert(frame), timestamp);
    }

    const std::shared_ptr<QelKit::QelVideoImageBuffer> frames =
        std::make_shared<QelKit::QelVideoImageBuffer>();

   private:
    QelUtilVideo::PixelBufferConverter converter_;
  };

  const std::shared_ptr<Feed> feed_;
  const std::vector<std::shared_ptr<QelUtilVideo::CapturableScreen>> displays_;
};
