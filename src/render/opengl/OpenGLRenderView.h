#pragma once

#include "platform/OpenGL.h"
#include "platform/Synchronised.h"
#include "platform/ThreadSafety.h"
#include "render/RenderViewImpl.h"
#include "render/opengl/RenderContext.h"

#include <QelUtilVideo/platform/NSView.h>

#include <memory>
#include <string>

namespace QelUtilVideo {
class Platform;
}

namespace QelUtilVideo::opengl {

/// The OpenGL backend of `RenderView`: a view on an asynchronous layer. It decides before each refresh
/// whether there is something to draw, draws under the context's lock, and reports the size it showed to
/// the `RenderView` around it.
///
/// Settings are main thread. `canDraw` and `drawRect` run on the layer's drawing thread with the context
/// locked, and one at a time even where two contexts follow each other; from there, and so under both
/// locks (the context's is the first), go log lines, the reading of the data source, and the notice to
/// the delegate.
class OpenGLRenderView final : public NSView, public RenderViewImpl {
 public:
  static std::shared_ptr<OpenGLRenderView> make(CGRect frame, Platform& platform);
  /// A view cannot be read from an archive: ends the process.
  [[noreturn]] static std::shared_ptr<OpenGLRenderView> make(NSCoder& coder);
  ~OpenGLRenderView() override;

  /// Whether to draw for the coming refresh. Drawing thread, context locked.
  [[nodiscard]] bool canDraw();
  /// Gives back the GL objects, if there are any. Any thread.
  void finalize();

  // NSView
  std::shared_ptr<CALayer> makeBackingLayer() override;
  void viewDidChangeBackingProperties() override;
  void drawRect(CGRect rect) override;

  // RenderViewImpl
  [[nodiscard]] NSView& asView() override { return *this; }
  /// Any thread.
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
  OpenGLRenderView(Key, CGRect frame, Platform& platform);

 private:
  void initialise();
  /// The context of the layer; null without layer or context.
  [[nodiscard]] std::shared_ptr<NSOpenGLContext> layerContext() const;
  [[nodiscard]] bool isPrepared(const std::shared_ptr<NSOpenGLContext>& context) const;
  /// False: the context could not be made current, and nothing was done.
  [[nodiscard]] bool draw(const std::shared_ptr<NSOpenGLContext>& context);
  /// Makes the coming refreshes draw as after a change of a setting.
  void drawAgain();
  void reportContentSize(CGSize size);

  Platform& platform_;
  const std::string logName_;
  Synchronised<std::weak_ptr<RenderViewDelegate>> renderDelegate_;
  std::shared_ptr<const NSColor> backgroundColor_;
  Synchronised<CGSize> contentSize_;
  /// The context that holds the GL objects; empty while there are none. It is more than a flag because
  /// the layer's context may be replaced while the drawing thread is on its way to the old one.
  Synchronised<std::weak_ptr<NSOpenGLContext>> preparedContext_;
  /// Guards what follows, but for the settings. Taken after a context's lock; recursive, since the host
  /// is called under it.
  RecursiveMutex drawing_;
  int redraw_ GUARDED_BY(drawing_) = 0;  ///< further refreshes to draw without a reason
  RenderContext renderContext_;
};

}  // namespace QelUtilVideo::opengl
