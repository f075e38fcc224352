#pragma once

#include "platform/MTKView.h"
#include "render/RenderViewImpl.h"
#include "render/metal/RenderContext.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

#include <memory>
#include <string>

namespace QelUtilVideo {
class Platform;
}

namespace QelUtilVideo::metal {

class RenderLoop;

/// The Metal backend of `RenderView`: a view that is drawn when the display link finds a reason, or when the
/// platform asks for it, and reports the size it showed to the `RenderView` around it. Everything is main
/// thread, but that a data source set elsewhere earns an error line; the last reference may be dropped on
/// any.
class MetalRenderView_macOS final : public MTKView, public RenderViewImpl {
 public:
  static std::shared_ptr<MetalRenderView_macOS> make(CGRect frame, const std::shared_ptr<MTLDevice>& device,
                                                     Platform& platform);
  /// A view cannot be read from an archive: ends the process.
  [[noreturn]] static std::shared_ptr<MetalRenderView_macOS> make(NSCoder& coder);
  ~MetalRenderView_macOS() override;

  [[nodiscard]] const RenderContext& renderContext() const { return renderContext_; }

  // NSView
  void setHidden(bool hidden) override;
  void viewWillMoveToWindow(const std::shared_ptr<NSWindow>& window) override;
  void viewDidMoveToWindow() override;
  void drawRect(CGRect rect) override;

  // RenderViewImpl
  [[nodiscard]] NSView& asView() override { return *this; }
  [[nodiscard]] std::shared_ptr<RenderViewDelegate> renderDelegate() const override;
  void setRenderDelegate(const std::shared_ptr<RenderViewDelegate>& delegate) override;
  [[nodiscard]] std::shared_ptr<RenderViewDataSource> dataSource() const override;
  void setDataSource(std::shared_ptr<RenderViewDataSource> source) override;
  [[nodiscard]] std::optional<std::uint8_t> deviceType() const override;
  void setDeviceType(std::optional<std::uint8_t> type) override;
  [[nodiscard]] std::shared_ptr<const NSColor> backgroundColor() const override;
  void setBackgroundColor(std::shared_ptr<const NSColor> color) override;
  [[nodiscard]] float blurRadius() const override;
  void setBlurRadius(float radius) override;
  [[nodiscard]] bool automaticallyAdjustsFitMode() const override;
  void setAutomaticallyAdjustsFitMode(bool adjusts) override;
  [[nodiscard]] bool fitInBounds() const override;
  void setFitInBounds(bool fit) override;
  [[nodiscard]] bool rotateAnimationEnabled() const override;
  void setRotateAnimationEnabled(bool enabled) override;

 private:
  struct Key {};

 public:
  MetalRenderView_macOS(Key, CGRect frame, const std::shared_ptr<MTLDevice>& device, Platform& platform);

 private:
  void initialise();
  void windowDidChangeScreen(const NSNotification& notification);
  [[nodiscard]] bool isOnScreen() const;
  void reportContentSize(CGSize size);

  Platform& platform_;
  const std::string logName_;
  std::weak_ptr<RenderViewDelegate> renderDelegate_;
  std::shared_ptr<const NSColor> backgroundColor_;
  CGSize contentSize_;
  RenderContext renderContext_;
  const std::shared_ptr<RenderLoop> renderLoop_;
  NotificationCenter::Token screenObserver_{};
};

}  // namespace QelUtilVideo::metal
