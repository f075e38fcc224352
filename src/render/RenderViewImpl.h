#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>

#include <cstdint>
#include <memory>
#include <optional>

namespace QelUtilVideo {

class NSColor;
class NSView;
class RenderView;
class RenderViewDataSource;
class RenderViewDelegate;

/// What `RenderView` asks of the backend that draws for it. Every backend is itself a view, which
/// `RenderView` keeps as its subview. Main thread.
class RenderViewImpl {
 public:
  virtual ~RenderViewImpl() = default;

  /// The backend as the view that it is.
  [[nodiscard]] virtual NSView& asView() = 0;

  /// Held weakly.
  [[nodiscard]] virtual std::shared_ptr<RenderViewDelegate> renderDelegate() const = 0;
  virtual void setRenderDelegate(const std::shared_ptr<RenderViewDelegate>& delegate) = 0;

  /// Any thread, although other threads than the main one earn an error line.
  [[nodiscard]] virtual std::shared_ptr<RenderViewDataSource> dataSource() const = 0;
  virtual void setDataSource(std::shared_ptr<RenderViewDataSource> source) = 0;

  [[nodiscard]] virtual std::optional<std::uint8_t> deviceType() const = 0;
  virtual void setDeviceType(std::optional<std::uint8_t> type) = 0;

  [[nodiscard]] virtual std::shared_ptr<const NSColor> backgroundColor() const = 0;
  virtual void setBackgroundColor(std::shared_ptr<const NSColor> color) = 0;

  [[nodiscard]] virtual float blurRadius() const = 0;
  virtual void setBlurRadius(float radius) = 0;

  [[nodiscard]] virtual bool automaticallyAdjustsFitMode() const = 0;
  virtual void setAutomaticallyAdjustsFitMode(bool adjusts) = 0;

  /// Reads as the value last set or last chosen automatically.
  [[nodiscard]] virtual bool fitInBounds() const = 0;
  virtual void setFitInBounds(bool fit) = 0;

  [[nodiscard]] virtual bool rotateAnimationEnabled() const = 0;
  virtual void setRotateAnimationEnabled(bool enabled) = 0;

 protected:
  /// Tells the host, and whoever observes it, which size is shown. Nobody but a backend can.
  static void assignContentSize(RenderView& view, CGSize size);
};

}  // namespace QelUtilVideo
