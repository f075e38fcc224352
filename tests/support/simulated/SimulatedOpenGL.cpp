#include "support/simulated/SimulatedOpenGL.h"

#include <cmath>
#include <cstddef>

namespace QelUtilVideo {
namespace {

thread_local SimulatedContext* currentContext = nullptr;

/// Null for an empty surface.
CGImageRef plainPicture(CGSize size, const std::vector<float>& premultipliedRGBA) {
  const auto width = static_cast<std::size_t>(size.width);
  const auto height = static_cast<std::size_t>(size.height);
  std::vector<std::byte> pixels;
  for (std::size_t pixel = 0; pixel < width * height; ++pixel) {
    for (const std::size_t component : {2, 1, 0, 3}) {
      pixels.push_back(static_cast<std::byte>(std::lround(premultipliedRGBA[component] * 255)));
    }
  }
  return makeImage(width, height, width * 4, pixels.data());
}

void add(GLViolations& violations, const std::string& text) {
  violations.with([&](auto& all) { all.push_back(text); });
}

}  // namespace

// ── SimulatedContext ────────────────────────────────────────────────────────────────────────────────

SimulatedContext::SimulatedContext(NSOpenGLPixelFormat pixelFormat, const NativeWindow* window,
                                   const RecordingGL& gl, std::shared_ptr<GLViolations> violations)
    : format(std::move(pixelFormat)), gl_(gl), violations_(std::move(violations)) {
  setDrawable(window);
  static std::atomic<int> nextIdentity = 1;
  identity = nextIdentity++;
}

SimulatedContext::~SimulatedContext() {
  if (depth_ != 0) add(*violations_, "a context was destroyed while locked");
}

void SimulatedContext::expectLocked(const char* what) const {
  if (!isLockedByThisThread()) add(*violations_, std::string(what) + " without the lock");
}

bool SimulatedContext::makeCurrentContext() {
  expectLocked("makeCurrentContext");
  if (busy) return false;
  currentContext = this;
  return true;
}

void SimulatedContext::flushBuffer() {
  expectLocked("flushBuffer");
  if (currentContext != this) add(*violations_, "flushBuffer of a context that is not current");
  flushes += 1;
  presented_.with(
      [picture = plainPicture(surfaceSize(), gl_.clearColor())](CGImageRef& last) { last = picture; });
}

bool SimulatedContext::setDrawable(const NativeWindow* window) {
  const std::lock_guard guard(lock_);
  const bool possible = !window || !refusesWindows;
  drawable_.with(
      [&](auto& drawable) { drawable = window && possible ? std::optional(*window) : std::nullopt; });
  return possible;
}

bool SimulatedContext::isEqual(const NSOpenGLContext& other) const {
  const auto* context = dynamic_cast<const SimulatedContext*>(&other);
  return context && context->identity == identity;
}

void SimulatedContext::lock() {
  lock_.lock();
  owner_ = std::this_thread::get_id();
  depth_ += 1;
}

void SimulatedContext::unlock() {
  expectLocked("unlock");
  if (!isLockedByThisThread()) return;
  depth_ -= 1;
  if (depth_ == 0) {
    owner_ = std::thread::id();
    if (currentContext == this) currentContext = nullptr;
  }
  lock_.unlock();
}

// ── SimulatedOpenGL ─────────────────────────────────────────────────────────────────────────────────

SimulatedOpenGL::SimulatedOpenGL() {
  gl.beforeCall = [violations = violations_](const std::string& call) {
    if (!currentContext) {
      add(*violations, call + " without a current context");
    } else if (!currentContext->isLockedByThisThread()) {
      add(*violations, call + " without the lock");
    }
  };
}

void SimulatedOpenGL::refresh() {
  for (const auto& each : drivers_.copy()) {
    const auto driven = each.lock();
    if (const auto layer = driven ? driven->layer.lock() : nullptr) layer->refresh(0);
  }
}

std::shared_ptr<NSOpenGLContext> SimulatedOpenGL::makeContext(const NSOpenGLPixelFormat& format,
                                                              const NativeWindow* window) {
  if (!hasDriver) return nullptr;
  auto context = std::make_shared<SimulatedContext>(format, window, gl, violations_);
  contexts_.with([&](auto& contexts) { contexts.push_back(context); });
  return context;
}

std::unique_ptr<OpenGLLayerDriver> SimulatedOpenGL::makeLayerDriver(std::weak_ptr<NSOpenGLLayer> layer,
                                                                    double refreshRate) {
  struct Driver final : OpenGLLayerDriver {
    explicit Driver(std::shared_ptr<Driven> toDrive) : driven(std::move(toDrive)) {}
    void setRefreshRate(double perSecond) override { driven->rate = perSecond; }
    std::shared_ptr<Driven> driven;
  };
  auto driver = std::make_unique<Driver>(std::make_shared<Driven>(std::move(layer), refreshRate));
  drivers_.with([&](auto& drivers) { drivers.push_back(driver->driven); });
  return driver;
}

}  // namespace QelUtilVideo
