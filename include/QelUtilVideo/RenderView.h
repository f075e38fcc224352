#pragma once

#include <QelUtilVideo/DeviceType.h>
#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/NSView.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace QelKit {
class QelVideoImageBuffer;
}

namespace QelUtilVideo {

class NSColor;
class RenderViewDataSource;
class RenderViewDelegate;
class RenderViewImpl;

/// Shows video: bi-planar 4:2:0 frames, fitted or filling, turned and mirrored by their orientation.
/// Give it a source of frames once; it draws by itself, on its display's refresh, whenever the frame or
/// a setting changed. Main thread, except where a member says otherwise.
///
///     auto view = RenderView::make(window->contentView()->bounds());
///     view->setImageBuffer(buffer);
///     window->contentView()->addSubview(view);
class QEL_EXPORT RenderView final : public NSView {
 public:
  /// A view with this frame, in points of its future superview.
  static std::shared_ptr<RenderView> make(CGRect frame);
  /// A view read from an archive; null when the archive holds none.
  static std::shared_ptr<RenderView> make(NSCoder& coder);
  ~RenderView() override;

  /// Told before each new frame is drawn. Held weakly.
  [[nodiscard]] std::shared_ptr<RenderViewDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<RenderViewDelegate>& delegate);

  /// Where frames come from; null shows the background. `imageBuffer` is the same slot seen as the
  /// host's frame container: null when the source is something else. Setting it on another thread logs
  /// an error line, and still sets it. While the frame cannot be shown (another kind of device, no
  /// picture, other planes) and its timestamp is not 0, the source is asked, and the background drawn,
  /// at every refresh.
  [[nodiscard]] std::shared_ptr<RenderViewDataSource> dataSource() const;
  void setDataSource(std::shared_ptr<RenderViewDataSource> source);
  [[nodiscard]] std::shared_ptr<QelKit::QelVideoImageBuffer> imageBuffer() const;
  void setImageBuffer(std::shared_ptr<QelKit::QelVideoImageBuffer> buffer);

  /// Only frames of this kind of device are shown; absent: all. `deviceTypeObjC` is the same setting as
  /// a case: a kind other than 0 and 1 reads as `unspecified`, and any other value set counts as that.
  [[nodiscard]] std::optional<std::uint8_t> deviceType() const;
  void setDeviceType(std::optional<std::uint8_t> type);
  [[nodiscard]] DeviceType deviceTypeObjC() const;
  void setDeviceTypeObjC(DeviceType type);

  /// Shown around and instead of the video; null is opaque black.
  [[nodiscard]] std::shared_ptr<const NSColor> backgroundColor() const;
  void setBackgroundColor(std::shared_ptr<const NSColor> color);

  /// A finite number above 0 blurs the video, by a Gaussian with a deviation of that part of the geometric
  /// mean of the picture's sides, so that small and large ones look alike; taken up to whole pixels, 16 at
  /// most. Anything else shows it sharp.
  [[nodiscard]] float blurRadius() const;
  void setBlurRadius(float radius);

  /// Chooses `fitInBounds` by itself: cover when frame and view are both landscape or both portrait.
  [[nodiscard]] bool automaticallyAdjustsFitMode() const;
  void setAutomaticallyAdjustsFitMode(bool adjusts);
  /// True: the whole picture is visible; false: the picture covers the view.
  [[nodiscard]] bool fitInBounds() const;
  void setFitInBounds(bool fit);
  /// Shows a change of orientation between frames of one source as a turn.
  [[nodiscard]] bool rotateAnimationEnabled() const;
  void setRotateAnimationEnabled(bool enabled);

  /// Size of the picture shown last, in image pixels, after rotation; (0, 0) while none is shown.
  [[nodiscard]] CGSize contentSize() const { return contentSize_; }
  using ContentSizeObserver = std::function<void(CGSize)>;
  using ObserverToken = std::uint64_t;
  /// Calls `observer` on the main thread after each assignment of `contentSize`, with the size as it is at
  /// that moment, in the order in which observers were added. An observer may add and remove observers,
  /// itself too, change the view, and run the main loop; what it throws goes to the system log, and the
  /// others are still told. Returns what `removeContentSizeObserver` takes; drop it for an observer that
  /// lasts as long as the view. One that is empty is never called.
  [[nodiscard]] ObserverToken addContentSizeObserver(ContentSizeObserver observer);
  /// The observer is not called any more, by an assignment under way either; one that is running ends
  /// first. An unknown token does nothing.
  void removeContentSizeObserver(ObserverToken token);

  void setHidden(bool hidden) override;

 private:
  struct Key {};
  friend class RenderViewImpl;

 public:
  RenderView(Key, CGRect frame);

 private:
  void setupRenderView();
  /// Assigns `contentSize` and tells the observers; for the backend.
  void setContentSize(CGSize size);

  CGSize contentSize_;
  std::shared_ptr<RenderViewImpl> renderView_;
  /// Tokens grow. Shared, so that one that removes itself outlives its own call.
  std::map<ObserverToken, std::shared_ptr<const ContentSizeObserver>> observers_;
  ObserverToken lastToken_ = 0;
};

}  // namespace QelUtilVideo
