#include "support/simulated/SimulatedOpenGL.h"

#include <cmath>
#include <cstddef>
#include <optional>

namespace QelUtilVideo {

namespace {

thread_local SimulatedContext* currentContext = nullptr;

std::byte codeOf(float component) { return static_cast<std::byte>(std::lround(component * 255)); }

/// Null for an empty surface.
CGImageRef plainPicture(CGSize size, const std::vector<float>& premultipliedRGBA) {
  const auto width = static_cast<std::size_t>(size.width);
  const auto height = static_cast<std::size_t>(size.height);
  std::vector<std::byte> pixels;
  pixels.reserve(width * height * 4);
  for (std::size_t pixel = 0; pixel < width * height; ++pixel) {
    for (const std::size_t component : {2, 1, 0, 3}) pixels.push_back(codeOf(premultipliedRGBA[component]));
  }
  return makeImage(width, height, width * 4, pixels.data());
}

class SimulatedDriver final : public OpenGLLayerDriver {
 public:
  explicit SimulatedDriver(std::shared_ptr<std::weak_ptr<NSOpenGLLayer>> entry) : entry_(std::move(entry)) {}

 private:
  std::shared_ptr<std::weak_ptr<NSOpenGLLayer>> entry_;
};

}  // namespace

// ── GLViolations ──────────────────────────────────────────────────────────────────────────────────

void GLViolations::add(std::string text) {
  const std::lock_guard lock(mutex_);
  list_.push_back(std::move(text));
}

std::vector<std::string> GLViolations::list() const {
  const std::lock_guard lock(mutex_);
  return list_;
}

// ── SimulatedContext ──────────────────────────────────────────────────────────────────────────────

SimulatedContext::SimulatedContext(NSOpenGLPixelFormat pixelFormat, const RecordingGL& gl,
                                   std::shared_ptr<GLViolations> violations)
    : format(std::move(pixelFormat)), gl_(gl), violations_(std::move(violations)) {
  static std::atomic<int> nextIdentity = 1;
  identity = nextIdentity++;
}

SimulatedContext::~SimulatedContext() {
  if (depth_ != 0) violations_->add("a context was destroyed while locked");
}

CGSize SimulatedContext::surfaceSize() const {
  const std::lock_guard lock(stateMutex_);
  return surfaceSize_;
}

SimulatedContext* SimulatedContext::current() { return currentContext; }

CGLContextObj SimulatedContext::cglContextObj() { return lost ? nullptr : this; }

void SimulatedContext::makeCurrentContext() {
  if (!isLockedByThisThread()) violations_->add("makeCurrentContext without the lock");
  currentContext = this;
}

void SimulatedContext::flushBuffer() {
  if (!isLockedByThisThread()) violations_->add("flushBuffer without the lock");
  if (currentContext != this) violations_->add("flushBuffer of a context that is not current");
  flushes += 1;
  CGImageRef picture = plainPicture(surfaceSize(), gl_.clearColor());
  const std::lock_guard lock(stateMutex_);
  presented_ = std::move(picture);
}

void SimulatedContext::setValues(std::int32_t value, std::int32_t parameter) {
  values.emplace_back(value, parameter);
}

bool SimulatedContext::isEqual(const NSOpenGLContext& other) const {
  const auto* context = dynamic_cast<const SimulatedContext*>(&other);
  return context && context->identity == identity;
}

void SimulatedContext::setSurfaceSize(CGSize pixels) {
  const std::lock_guard lock(stateMutex_);
  surfaceSize_ = pixels;
}

CGImageRef SimulatedContext::copyPresentedImage() {
  const std::lock_guard lock(stateMutex_);
  return presented_;
}

void SimulatedContext::lock() {
  lock_.lock();
  owner_ = std::this_thread::get_id();
  depth_ += 1;
  locks += 1;
}

void SimulatedContext::unlock() {
  if (!isLockedByThisThread()) {
    violations_->add("unlock without the lock");
    return;
  }
  depth_ -= 1;
  if (depth_ == 0) {
    owner_ = std::thread::id();
    if (currentContext == this) currentContext = nullptr;
  }
  lock_.unlock();
}

// ── SimulatedOpenGL ───────────────────────────────────────────────────────────────────────────────

SimulatedOpenGL::SimulatedOpenGL() {
  gl.beforeCall = [violations = violations_](const std::string& call) {
    const SimulatedContext* context = SimulatedContext::current();
    if (!context) {
      violations->add(call + " without a current context");
    } else if (!context->isLockedByThisThread()) {
      violations->add(call + " without the lock");
    }
  };
}

void SimulatedOpenGL::refresh(double displayTime) {
  std::vector<std::weak_ptr<std::weak_ptr<NSOpenGLLayer>>> driven;
  {
    const std::lock_guard lock(mutex_);
    std::erase_if(driven_, [](const auto& entry) { return entry.expired(); });
    driven = driven_;
  }
  for (const auto& entry : driven) {
    const auto alive = entry.lock();
    if (const auto layer = alive ? alive->lock() : nullptr) layer->refresh(displayTime);
  }
}

std::size_t SimulatedOpenGL::liveDrivers() const {
  const std::lock_guard lock(mutex_);
  std::size_t live = 0;
  for (const auto& entry : driven_) live += entry.expired() ? 0 : 1;
  return live;
}

std::vector<std::shared_ptr<SimulatedContext>> SimulatedOpenGL::contexts() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<SimulatedContext>> alive;
  for (const auto& context : contexts_) {
    if (auto held = context.lock()) alive.push_back(std::move(held));
  }
  return alive;
}

std::shared_ptr<NSOpenGLContext> SimulatedOpenGL::makeContext(const NSOpenGLPixelFormat& format) {
  if (!hasDriver) return nullptr;
  auto context = std::make_shared<SimulatedContext>(format, gl, violations_);
  contextsMade_ += 1;
  const std::lock_guard lock(mutex_);
  contexts_.push_back(context);
  return context;
}

std::unique_ptr<OpenGLLayerDriver> SimulatedOpenGL::makeLayerDriver(std::weak_ptr<NSOpenGLLayer> layer) {
  auto entry = std::make_shared<std::weak_ptr<NSOpenGLLayer>>(std::move(layer));
  const std::lock_guard lock(mutex_);
  driven_.push_back(entry);
  return std::make_unique<SimulatedDriver>(std::move(entry));
}

}  // namespace QelUtilVideo
