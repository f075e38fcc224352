#include <QelUtilVideo/platform/NSWindow.h>

#include "platform/CALayer.h"
#include "platform/Dispatch.h"
#include "platform/Displays.h"
#include "platform/HostCall.h"
#include "platform/Images.h"
#include "platform/Root.h"
#include "platform/ScreenChoice.h"
#include "platform/Views.h"

#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/NSEvent.h>
#include <QelUtilVideo/platform/NSScreen.h>
#include <QelUtilVideo/platform/NSView.h>
#include <QelUtilVideo/platform/NSWindowDelegate.h>
#include <QelUtilVideo/platform/NotificationCenter.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr double offscreenRefreshesPerSecond = 60;
constexpr double largestSideInPixels = 65'535;
constexpr double largestSideOnADisplay = 32'767;

CGSize sanitised(CGSize size) {
  const auto side = [](double value) { return std::isfinite(value) && value >= 1 ? value : 1; };
  return {side(size.width), side(size.height)};
}

CGSize sanitisedForDisplay(CGSize size) {
  const CGSize sane = sanitised(size);
  return {std::min(sane.width, largestSideOnADisplay), std::min(sane.height, largestSideOnADisplay)};
}

double sanitised(double backingScaleFactor) {
  return backingScaleFactor >= 0.5 && backingScaleFactor <= 8 ? backingScaleFactor : 1;
}

CGRect scaled(const CGRect& rect, double scale) {
  return CGRectMake(rect.origin.x * scale, rect.origin.y * scale, rect.size.width * scale,
                    rect.size.height * scale);
}

/// A transparent picture with a surface over it.
struct Canvas {
  CGImageLayout layout;
  std::shared_ptr<ImageBytes> bytes;
  std::unique_ptr<CGContext> context;
};

/// Without a context when the picture is too large.
Canvas makeCanvas(CGSize pixels) {
  Canvas canvas;
  if (pixels.width > largestSideInPixels || pixels.height > largestSideInPixels) return canvas;
  canvas.layout.width = static_cast<std::size_t>(pixels.width);
  canvas.layout.height = static_cast<std::size_t>(pixels.height);
  canvas.layout.bytesPerRow = canvas.layout.width * 4;
  canvas.bytes = makeHeapBytes(canvas.layout.bytesPerRow * canvas.layout.height);
  if (!canvas.bytes) return canvas;
  std::memset(canvas.bytes->data(), 0, canvas.bytes->size());
  canvas.context =
      Root::current().platform().images().CGBitmapContextCreate(canvas.bytes->data(), canvas.layout);
  return canvas;
}

/// Draws the view's tree, back to front; answers whether there was anything to draw. `origin` is where
/// the superview's origin lies in the window.
bool drawTree(const NSView& view, CGPoint origin, double scale, CGContext& context) {
  if (view.isHidden()) return false;
  const CGRect frame = view.frame();
  const CGPoint place{origin.x + frame.origin.x, origin.y + frame.origin.y};
  bool drew = false;
  const auto layer = view.layer();
  if (const CGImageRef picture = layer ? layer->contents() : nullptr) {
    context.CGContextDrawImage(scaled({place, frame.size}, scale), *picture);
    drew = true;
  }
  for (const auto& subview : view.subviews()) drew |= drawTree(*subview, place, scale, context);
  return drew;
}

}  // namespace

/// A window's tie to the one on the display: keeps it, and passes on what is told about it.
class NSWindow::Peer final : public WindowClient {
 public:
  enum class Owner { we, others };

  explicit Peer(Owner owner) : owner_(owner) {}
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  ~Peer() override {
    if (observation_) center_.removeObserver(*observation_);
  }

  void begin(const std::shared_ptr<NSWindow>& window) {
    window_ = window;
    observation_ = center_.addObserver(NSApplicationDidChangeScreenParametersNotification, nullptr,
                                       [window = window_](const NSNotification&) {
                                         if (const auto alive = window.lock()) alive->follow();
                                       });
  }

  [[nodiscard]] bool isOurs() const { return owner_ == Owner::we; }

  // WindowClient
  void windowChanged() override {
    if (const auto window = window_.lock()) window->follow();
  }
  void windowCloseRequested() override {
    if (const auto window = window_.lock()) window->closeRequested();
  }
  void windowKeyDown(const NSEvent& event) override {
    if (const auto window = window_.lock()) {
      window->tellDelegate("windowKeyDown",
                           [&](NSWindowDelegate& delegate) { delegate.windowKeyDown(*window, event); });
    }
  }
  void windowGone() override {
    if (const auto window = window_.lock()) window->close();
  }

  std::unique_ptr<WindowBacking> backing;

 private:
  const Owner owner_;
  NotificationCenter& center_ = Root::current().platform().notificationCenter();
  std::weak_ptr<NSWindow> window_;
  std::optional<NotificationCenter::Token> observation_;
};

std::shared_ptr<NSWindow> NSWindow::make(CGSize size, const std::string& title) {
  auto peer = std::make_shared<Peer>(Peer::Owner::we);
  peer->backing = Root::current().platform().views().makeWindow(sanitisedForDisplay(size), title, peer);
  return makeWith(std::move(peer));
}

std::shared_ptr<NSWindow> NSWindow::makeInForeignWindow(std::uint32_t windowNumber) {
  auto peer = std::make_shared<Peer>(Peer::Owner::others);
  peer->backing = Root::current().platform().views().makeWindowIn(windowNumber, peer);
  return makeWith(std::move(peer));
}

std::shared_ptr<NSWindow> NSWindow::makeWith(std::shared_ptr<Peer> peer) {
  if (!peer->backing) return nullptr;
  auto window = std::make_shared<NSWindow>(Key{}, sanitised(peer->backing->state().frame.size), 1);
  window->setContentView(nullptr);
  window->peer_ = std::move(peer);
  window->peer_->begin(window);
  window->follow();
  return window;
}

std::shared_ptr<NSWindow> NSWindow::makeOffscreen(CGSize size, double backingScaleFactor) {
  auto window = std::make_shared<NSWindow>(Key{}, sanitised(size), sanitised(backingScaleFactor));
  NSScreen::Properties properties;
  properties.localizedName = "Off-screen";
  properties.frame = {{0, 0}, window->size_};
  properties.backingScaleFactor = window->backingScaleFactor_;
  properties.maximumFramesPerSecond = offscreenRefreshesPerSecond;
  window->screen_ = std::make_shared<NSScreen>(std::move(properties));
  window->setContentView(nullptr);
  return window;
}

NSWindow::NSWindow(Key, CGSize size, double backingScaleFactor)
    : size_(size), backingScaleFactor_(backingScaleFactor) {}

NSWindow::~NSWindow() {
  if (!contentView_) return;
  callHost("A window's end", [&] {
    Dispatch& dispatch = Root::current().platform().dispatch();
    if (dispatch.mainLoop().isMainThread()) {
      contentView_->moveToWindow(nullptr);
    } else {
      // The window on the display stays until its views have left it.
      dispatch.mainQueue()->async([view = std::move(contentView_), peer = std::move(peer_)] {
        // Meanwhile it may have come into another window.
        if (!view->window()) view->moveToWindow(nullptr);
      });
    }
  });
}

void NSWindow::setContentView(std::shared_ptr<NSView> view) {
  if (view && view == contentView_) return;
  if (!view) view = std::make_shared<NSView>(CGRectZero);
  view->detach();
  if (view->superview() || view->window()) return;  // a hook has found it another place
  const auto old = std::exchange(contentView_, view);
  if (old) old->moveToWindow(nullptr);
  if (contentView_ != view) return;  // a hook has put another view here
  view->setFrame({{0, 0}, size_});
  view->moveToWindow(self());
}

void NSWindow::setContentSize(CGSize size) {
  if (!peer_) return resizeContent(sanitised(size));
  if (!peer_->isOurs()) return;
  const CGSize possible = sanitisedForDisplay(size);
  peer_->backing->setContentSize(possible);
  resizeContent(possible);
}

CGSize NSWindow::contentSize() const { return size_; }

void NSWindow::orderFront() {
  if (peer_) peer_->backing->orderFront();
}

void NSWindow::orderOut() {
  if (peer_) peer_->backing->orderOut();
}

void NSWindow::setTitle(const std::string& title) {
  if (peer_) peer_->backing->setTitle(title);
}

std::uint32_t NSWindow::windowNumber() const { return peer_ ? peer_->backing->windowNumber() : 0; }

std::shared_ptr<NSScreen> NSWindow::screen() const { return screen_; }

CGImageRef NSWindow::image() const {
  const CGSize pixels{std::round(size_.width * backingScaleFactor_),
                      std::round(size_.height * backingScaleFactor_)};
  Canvas canvas = makeCanvas(pixels);
  if (!canvas.context || !drawTree(*contentView_, {0, 0}, backingScaleFactor_, *canvas.context)) {
    return nullptr;
  }
  canvas.context.reset();
  return std::make_shared<CGImage>(canvas.layout, std::move(canvas.bytes));
}

void NSWindow::close() {
  if (std::exchange(closed_, true)) return;
  const auto kept = self();
  tellDelegate("windowWillClose", [&](NSWindowDelegate& delegate) { delegate.windowWillClose(*this); });
  setScreen(nullptr);
  setContentView(nullptr);
  peer_.reset();
}

std::shared_ptr<ViewSurface> NSWindow::makeSurface(std::weak_ptr<ViewSurfaceClient> client) {
  return peer_ && !closed_ ? peer_->backing->makeSurface(std::move(client)) : nullptr;
}

void NSWindow::follow() {
  if (!peer_ || closed_) return;
  const auto kept = self();
  const WindowBacking::State state = peer_->backing->state();
  resizeContent(sanitised(state.frame.size));
  // The delegate may have closed the window.
  if (closed_) return;
  setScreen(state.viewable ? screenShowing(state.frame, Root::current().platform().displays()) : nullptr);
}

void NSWindow::setScreen(std::shared_ptr<NSScreen> screen) {
  if (screen == screen_) return;
  screen_ = std::move(screen);
  if (screen_) backingScaleFactor_ = sanitised(screen_->backingScaleFactor());
  contentView_->screenChanged(backingScaleFactor_);
  Root::current().platform().notificationCenter().postNotificationName(NSWindowDidChangeScreenNotification,
                                                                       self());
  tellDelegate("windowDidChangeScreen",
               [&](NSWindowDelegate& delegate) { delegate.windowDidChangeScreen(*this); });
}

void NSWindow::resizeContent(CGSize size) {
  if (std::exchange(size_, size) == size) return;
  contentView_->setFrame({{0, 0}, size_});
  tellDelegate("windowDidResize", [&](NSWindowDelegate& delegate) { delegate.windowDidResize(*this); });
}

void NSWindow::closeRequested() {
  bool closes = true;
  tellDelegate("windowShouldClose", [&](NSWindowDelegate& delegate) {
    closes = false;
    closes = delegate.windowShouldClose(*this);
  });
  if (closes) close();
}

template <class Tell>
void NSWindow::tellDelegate(const char* name, Tell&& tell) {
  if (const auto delegate = delegate_.lock()) callHost(name, [&] { tell(*delegate); });
}

std::shared_ptr<NSWindow> NSWindow::self() { return std::dynamic_pointer_cast<NSWindow>(shared_from_this()); }

}  // namespace QelUtilVideo
