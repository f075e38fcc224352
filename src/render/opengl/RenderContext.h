#pragma once

#include "platform/Synchronised.h"
#include "render/FrameSnapshot.h"
#include "render/opengl/Blur.h"
#include "render/opengl/GL.h"
#include "render/opengl/Geometry.h"
#include "render/opengl/Program.h"
#include "render/opengl/Texture.h"

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace QelUtilVideo {
class Platform;
class RenderViewDataSource;
}  // namespace QelUtilVideo

namespace QelUtilVideo::opengl {

class OpenGLRenderView;

/// The settings of a view, as the main thread makes them and the drawing thread takes them: whole.
struct RenderSettings {
  std::shared_ptr<RenderViewDataSource> dataSource;
  std::optional<std::uint8_t> deviceType;
  bool rotateAnimationEnabled = false;
  std::array<float, 4> clearColor{0, 0, 0, 1};
  float blurRadius = 0;
  bool automaticallyAdjustsFitMode = false;
  bool fitInBounds = false;          ///< as last set, or as last chosen automatically
  std::uint64_t fitRevision = 0;     ///< counts the times that `fitInBounds` was set
  bool needsUpdate = false;          ///< a setting changed since the drawing thread last asked
  bool geometryNeedsUpdate = false;  ///< one that moves the picture; taken when it is next drawn
};

/// Draws the current frame of a data source: uploads its planes, converts YUV to RGB, blurs
/// and places the picture.
/// Settings may be read and changed on any thread. Everything else belongs to the drawing thread and
/// happens with the GL context current and locked; host code that is called from there (data source,
/// delegate) may throw, which ends as a record of the platform's troubles.
///
///     context.prepare();                          // once per GL context
///     if (context.drawReason(view) != none)       // before each refresh
///       context.render(view);
///     context.release();                          // before the GL context goes
class RenderContext {
 public:
  enum class DrawReason : std::uint8_t { none, settingsChanged, resized, content };

  RenderContext(Platform& platform, const std::string& logName);
  RenderContext(const RenderContext&) = delete;
  RenderContext& operator=(const RenderContext&) = delete;
  ~RenderContext();

  [[nodiscard]] RenderSettings settings() const { return settings_.copy(); }
  /// Calls `function(RenderSettings&)` under the record's lock.
  template <class F>
  void change(F&& function) {
    settings_.with(std::forward<F>(function));
  }

  /// Makes the GL objects in the current context; nothing of an earlier context is kept.
  void prepare();
  /// Why the view should be drawn again. Calls no GL.
  [[nodiscard]] DrawReason drawReason(const OpenGLRenderView& view);
  /// The size in pixels of the surface that the view wants now.
  [[nodiscard]] static Geometry::Size viewportSize(const OpenGLRenderView& view);
  /// Draws on a surface of the size `viewport` and answers the size of the picture shown, in its pixels,
  /// after rotation; (0, 0) for none.
  [[nodiscard]] CGSize render(OpenGLRenderView& view, Geometry::Size viewport);
  void release();

 private:
  [[nodiscard]] RenderSettings takeSettings();
  void clear(const RenderSettings& settings) const;
  [[nodiscard]] GLuint drawFramebuffer() const;
  /// Uploads the frame, unless it is there already, and takes over its orientation. Answers whether
  /// there is a picture to draw, which may be the one before.
  [[nodiscard]] bool update(const FrameSnapshot& frame, const RenderSettings& settings);
  void publishFitMode(const RenderSettings& settings);
  void drawSharp(bool quadChanged) const;
  /// Draws through the blur onto the framebuffer `target`.
  void drawBlurred(bool placementChanged, bool blurChanged, GLuint target) const;
  void place(const Program& program) const;

  GL gl_;
  Synchronised<RenderSettings> settings_;
  std::optional<FrameOrigin> lastMetadata_;  ///< who made the frame drawn last
  double lastTimestamp_ = 0;                 ///< seconds; 0: the last refresh showed no picture
  Geometry geometry_;
  Texture texture_;
  Program program_;
  Blur blur_;
};

}  // namespace QelUtilVideo::opengl
