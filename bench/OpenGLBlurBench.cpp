// What the blur of the OpenGL backend takes at its strongest: both passes over a picture, to the end. For
// graphics processors beside `vulkan_blur_bench`; on a software driver the large ones take seconds each.
//
//   build/bench/bin/opengl_blur_bench --benchmark_filter=w:160

#include "platform/linux/egl/EglOpenGL.h"
#include "render/opengl/Blur.h"
#include "render/opengl/Program.h"

#include <benchmark/benchmark.h>
#include <epoxy/gl.h>

#include <cstdint>

namespace {

using namespace QelUtilVideo;

void blur(benchmark::State& state) {
  EglOpenGL openGL(nullptr);
  const auto context = openGL.makeContext({}, nullptr);
  if (!context) return state.SkipWithError("there is no driver");
  const ContextLock lock(context->cglContextObj());
  const opengl::Blur::Size size{static_cast<std::int32_t>(state.range(0)),
                                static_cast<std::int32_t>(state.range(1))};
  context->setSurfaceSize({static_cast<double>(size.width), static_cast<double>(size.height)});
  if (!context->makeCurrentContext()) return state.SkipWithError("there is no surface");
  GLint view = 0;
  glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &view);

  opengl::Blur blur(opengl::GL(openGL, "[bench]"));
  blur.prepare();
  static_cast<void>(blur.update(1, size));
  glViewport(0, 0, size.width, size.height);
  blur.horzBlur().use();
  blur.horzBlur().setVertices(opengl::fullScreenQuad);
  blur.horzBlur().setTransform(identityTransform);
  for (auto _ : state) {
    glBindFramebuffer(GL_FRAMEBUFFER, blur.framebuffer(1));
    blur.vertBlur().use();
    blur.vertBlur().draw();
    glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(view));
    blur.horzBlur().use();
    blur.horzBlur().draw();
    glFinish();
  }
  blur.release();
}

BENCHMARK(blur)
    ->ArgNames({"w", "h"})
    ->Args({160, 90})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
