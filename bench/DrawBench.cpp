// What a view adds to the driver's own work for each refresh: the layer's decision and drawing of 1080p
// frames, over OpenGL functions that do nothing. Times are the drawing thread's, user and system.
//
//   build/bench/bin/draw_bench
//
// The contexts of `NoOpMachine` do nothing either; `EglMachine` takes the real ones, whose locking, making
// current and presenting is in the figure then.

#include "NoOpGL.h"
#include "WrappedPlatform.h"
#include "platform/NSOpenGLLayer.h"
#include "platform/OpenGL.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

namespace {

using namespace QelUtilVideo;

class NoOpContext final : public NSOpenGLContext, public CGLContext {
 public:
  [[nodiscard]] CGLContextObj cglContextObj() override { return this; }
  bool makeCurrentContext() override { return true; }
  void flushBuffer() override {}
  void presentAgain() override {}
  [[nodiscard]] bool isShown() const override { return true; }
  bool setDrawable(const NativeWindow*) override { return true; }
  void setValues(std::int32_t, std::int32_t) override {}
  void setSurfaceSize(CGSize) override {}
  [[nodiscard]] CGImageRef copyPresentedImage() override { return nullptr; }
  void lock() override { mutex_.lock(); }
  void unlock() override { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

/// Hands the layer to the benchmark, which refreshes it on its own thread.
class HandDrivenOpenGL final : public OpenGL {
 public:
  /// `contexts` makes the contexts; without it they do nothing.
  explicit HandDrivenOpenGL(OpenGL* contexts) : contexts_(contexts) {}

  [[nodiscard]] std::shared_ptr<NSOpenGLContext> makeContext(const NSOpenGLPixelFormat& format,
                                                             const NativeWindow* window) override {
    return contexts_ ? contexts_->makeContext(format, window) : std::make_shared<NoOpContext>();
  }
  [[nodiscard]] std::unique_ptr<OpenGLLayerDriver> makeLayerDriver(std::weak_ptr<NSOpenGLLayer> layer,
                                                                   double) override {
    struct Driver final : OpenGLLayerDriver {
      void setRefreshRate(double) override {}
    };
    layer_ = std::move(layer);
    return std::make_unique<Driver>();
  }
  [[nodiscard]] OpenGLFunctions& functions() override { return gl; }

  [[nodiscard]] std::shared_ptr<NSOpenGLLayer> layer() const { return layer_.lock(); }
  NoOpGL gl;

 private:
  OpenGL* contexts_;
  std::weak_ptr<NSOpenGLLayer> layer_;
};

class NoOpMachine final : public WrappedPlatform {
 public:
  HandDrivenOpenGL& openGL() override { return openGL_; }

 private:
  HandDrivenOpenGL openGL_{nullptr};
};

class EglMachine final : public WrappedPlatform {
 public:
  HandDrivenOpenGL& openGL() override { return openGL_; }

 private:
  HandDrivenOpenGL openGL_{&real().openGL()};
};

/// A view of 1080p in a window of its own, with two frames to show in turn.
template <class Machine>
class Stage {
 public:
  Stage() {
    for (CVPixelBufferRef& frame : frames_) {
      static_cast<void>(
          CVPixelBufferCreate(1920, 1080, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, frame));
    }
    window_->contentView()->addSubview(view_);
    view_->setImageBuffer(buffer_);
    layer_ = machine_->openGL().layer();
    showNewFrame();
    // The first refresh prepares; the benchmark begins with the view at rest.
    for (int i = 0; layer_ && i < 10; ++i) refresh();
    draws_ = machine_->openGL().gl.draws;
  }

  [[nodiscard]] bool canDraw() const { return layer_ && draws_ > 0; }
  [[nodiscard]] RenderView& view() { return *view_; }
  /// Draws since the benchmark began.
  [[nodiscard]] std::int64_t draws() { return machine_->openGL().gl.draws - draws_; }

  void showNewFrame(CGImagePropertyOrientation orientation = CGImagePropertyOrientation::up) {
    count_ += 1;
    buffer_->setImage(frames_[count_ % 2], static_cast<double>(count_), orientation);
  }
  void refresh() { layer_->refresh(0); }

 private:
  ScopedMachine<Machine> machine_;
  std::array<CVPixelBufferRef, 2> frames_;
  std::shared_ptr<NSWindow> window_ = NSWindow::makeOffscreen({1920, 1080});
  std::shared_ptr<RenderView> view_ = RenderView::make(window_->contentView()->bounds());
  std::shared_ptr<QelKit::QelVideoImageBuffer> buffer_ = std::make_shared<QelKit::QelVideoImageBuffer>();
  std::shared_ptr<NSOpenGLLayer> layer_;
  std::int64_t draws_ = 0;
  std::size_t count_ = 0;
};

/// Refreshes a view once per iteration, after `change(stage, iteration)`; `draws` says whether each one
/// has to draw.
template <class Machine, class Change>
void refreshAfter(benchmark::State& state, bool draws, Change change) {
  Stage<Machine> stage;
  if (!stage.canDraw()) return state.SkipWithError("this machine has no OpenGL driver");
  std::int64_t iteration = 0;
  for (auto _ : state) {
    change(stage, iteration++);
    stage.refresh();
  }
  if (stage.draws() != (draws ? iteration : 0)) state.SkipWithError("not every refresh did what it should");
}

template <class Machine>
void newFrame(benchmark::State& state) {
  refreshAfter<Machine>(state, true, [](auto& stage, std::int64_t) { stage.showNewFrame(); });
}

/// Every frame lies otherwise than the one before, so that the quad and its transform are sent again.
template <class Machine>
void newFrameAndGeometry(benchmark::State& state) {
  refreshAfter<Machine>(state, true, [](auto& stage, std::int64_t iteration) {
    using Orientation = CGImagePropertyOrientation;
    stage.showNewFrame(iteration % 2 == 0 ? Orientation::downMirrored : Orientation::up);
  });
}

template <class Machine>
void sameFrameDrawnAgain(benchmark::State& state) {
  refreshAfter<Machine>(state, true, [](auto& stage, std::int64_t) { stage.view().setBlurRadius(0); });
}

template <class Machine>
void nothingChanged(benchmark::State& state) {
  refreshAfter<Machine>(state, false, [](auto&, std::int64_t) {});
}

BENCHMARK(newFrame<NoOpMachine>)->Unit(benchmark::kMicrosecond);
BENCHMARK(newFrame<EglMachine>)->Unit(benchmark::kMicrosecond);
BENCHMARK(newFrameAndGeometry<NoOpMachine>)->Unit(benchmark::kMicrosecond);
BENCHMARK(newFrameAndGeometry<EglMachine>)->Unit(benchmark::kMicrosecond);
BENCHMARK(sameFrameDrawnAgain<NoOpMachine>)->Unit(benchmark::kMicrosecond);
BENCHMARK(sameFrameDrawnAgain<EglMachine>)->Unit(benchmark::kMicrosecond);
BENCHMARK(nothingChanged<NoOpMachine>)->Unit(benchmark::kMicrosecond);
BENCHMARK(nothingChanged<EglMachine>)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
