#pragma once

#include "platform/NSOpenGLLayer.h"
#include "platform/OpenGLFunctions.h"

#include <QelUtilVideo/platform/NSView.h>

#include <array>
#include <functional>
#include <memory>
#include <vector>

namespace QelUtilVideo {

/// Draws a plain colour with OpenGL.
class LayerView : public NSView {
 public:
  static std::shared_ptr<LayerView> make(OpenGL& openGL, CGRect frame, bool asynchronous = true) {
    auto view = std::make_shared<LayerView>(openGL, frame);
    view->setWantsLayer(true);
    view->openGLLayer().setAsynchronous(asynchronous);
    return view;
  }
  LayerView(OpenGL& openGL, CGRect frame) : NSView(frame), openGL_(openGL) {}

  std::shared_ptr<CALayer> makeBackingLayer() override { return std::make_shared<Layer>(openGL_); }
  void drawRect(CGRect rect) override {
    drawn.push_back(rect);
    if (whileDrawing) whileDrawing();
    const auto context = openGLLayer().openGLContext();
    context->makeCurrentContext();
    openGL_.functions().glClearColor(color[0], color[1], color[2], color[3]);
    openGL_.functions().glClear(GL_COLOR_BUFFER_BIT);
    context->flushBuffer();
  }
  [[nodiscard]] NSOpenGLLayer& openGLLayer() const { return static_cast<NSOpenGLLayer&>(*layer()); }

  bool canDraw = true;  ///< what the layer answers when it is asked
  std::vector<CGRect> drawn;
  std::array<float, 4> color{1, 0, 0, 1};
  std::function<void()> whileDrawing;

 private:
  class Layer final : public NSOpenGLLayer {
   public:
    using NSOpenGLLayer::NSOpenGLLayer;
    bool canDrawInOpenGLContext(NSOpenGLContext&, double) override {
      return dynamic_cast<LayerView&>(*view()).canDraw;
    }
  };

  OpenGL& openGL_;
};

}  // namespace QelUtilVideo
