#include <QelUtilVideo/platform/NSView.h>

#include "platform/CALayer.h"
#include "platform/HostCall.h"

#include <QelUtilVideo/platform/NSCoder.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <algorithm>
#include <bitset>
#include <cmath>
#include <optional>
#include <utility>

namespace QelUtilVideo {

namespace {

CGRect sanitised(const CGRect& frame) {
  const auto coordinate = [](double value) { return std::isfinite(value) ? value : 0; };
  const auto side = [](double value) { return std::isfinite(value) && value > 0 ? value : 0; };
  return CGRectMake(coordinate(frame.origin.x), coordinate(frame.origin.y), side(frame.size.width),
                    side(frame.size.height));
}

/// Where a subview lies along one axis.
struct Span {
  double origin;
  double length;
};

/// Shares `gain` evenly among the flexible ones of margin before, length and margin after, the three
/// lowest bits of `flexible` in this order.
Span resized(Span span, std::uint32_t flexible, double gain) {
  const auto parts = std::bitset<3>(flexible).count();
  if (parts == 0) return span;
  const double share = gain / static_cast<double>(parts);
  if ((flexible & 1) != 0) span.origin += share;
  if ((flexible & 2) != 0) span.length += share;
  return span;
}

auto positionOf(std::vector<std::shared_ptr<NSView>>& views, const NSView* view) {
  return std::find_if(views.begin(), views.end(), [&](const auto& each) { return each.get() == view; });
}

}  // namespace

template <class F>
auto NSView::withShared(F&& access) const {
  const std::lock_guard lock(sharedMutex_);
  return std::forward<F>(access)(shared_);
}

template <class F>
auto NSView::withShared(F&& access) {
  const std::lock_guard lock(sharedMutex_);
  return std::forward<F>(access)(shared_);
}

NSView::NSView(CGRect frame) { shared_.frame = sanitised(frame); }

NSView::~NSView() = default;

// ── Tree ──────────────────────────────────────────────────────────────────────────────────────────

std::shared_ptr<NSView> NSView::superview() const {
  return withShared([](const Shared& shared) { return shared.superview.lock(); });
}

std::shared_ptr<NSWindow> NSView::window() const {
  return withShared([](const Shared& shared) { return shared.window.lock(); });
}

void NSView::addSubview(const std::shared_ptr<NSView>& view) {
  addSubview(view, NSWindowOrderingMode::above, nullptr);
}

void NSView::addSubview(const std::shared_ptr<NSView>& view, NSWindowOrderingMode place,
                        const NSView* relative) {
  if (!view || view.get() == relative) return;
  const auto me = self();
  for (auto ancestor = me; ancestor; ancestor = ancestor->superview()) {
    if (ancestor == view) return;
  }

  const auto kept = view;
  const bool moves = kept->superview() != me;
  if (moves) {
    kept->detach();
    if (kept->superview()) return;  // a hook has found it another place
  } else {
    std::erase(subviews_, kept);
  }

  const bool above = place == NSWindowOrderingMode::above;
  auto position = positionOf(subviews_, relative);
  if (position == subviews_.end()) {
    position = above ? subviews_.end() : subviews_.begin();
  } else if (above) {
    ++position;
  }
  subviews_.insert(position, kept);
  if (moves) kept->attachTo(me);
  if (const auto shownIn = window()) shownIn->contentView()->raiseSurfaces();
}

void NSView::removeFromSuperview() {
  if (superview()) detach();
}

void NSView::detach() {
  const auto me = self();
  const auto oldSuperview = superview();
  const auto oldWindow = window();
  // Also where the window has gone meanwhile.
  const bool isInWindow = withShared([](const Shared& shared) {
    const std::weak_ptr<NSWindow> none;
    return shared.window.owner_before(none) || none.owner_before(shared.window);
  });
  if (!oldSuperview) {
    if (oldWindow && oldWindow->contentView() == me) oldWindow->setContentView(nullptr);
    return;
  }
  const bool wasHidden = isHiddenOrHasHiddenAncestor();
  std::erase(oldSuperview->subviews_, me);
  withShared([](Shared& shared) { shared.superview.reset(); });
  if (isInWindow) moveToWindow(nullptr);
  if (wasHidden && !isHiddenOrHasHiddenAncestor()) hiddenAncestryChanged(false);
}

void NSView::attachTo(const std::shared_ptr<NSView>& superview) {
  const bool wasHidden = isHiddenOrHasHiddenAncestor();
  withShared([&](Shared& shared) { shared.superview = superview; });
  if (const auto window = superview->window()) moveToWindow(window);
  if (!wasHidden && isHiddenOrHasHiddenAncestor()) hiddenAncestryChanged(true);
}

void NSView::moveToWindow(const std::shared_ptr<NSWindow>& window) {
  for (const auto& view : subtree()) {
    callHost("viewWillMoveToWindow", [&] { view->viewWillMoveToWindow(window); });
  }
  // Hooks may have changed the tree; what lies in it now is what moves.
  const auto views = subtree();
  for (const auto& view : views) {
    view->withShared([&](Shared& shared) { shared.window = window; });
  }
  for (const auto& view : views) {
    if (view->window() != window) continue;
    if (window) {
      view->setBackingScale(window->backingScaleFactor());
      view->updateLayerSurface();
      view->updateLayerVisibility();
    } else {
      view->updateLayerVisibility();
      view->updateLayerSurface();
    }
    callHost("viewDidMoveToWindow", [&] { view->viewDidMoveToWindow(); });
  }
}

std::vector<std::shared_ptr<NSView>> NSView::subtree() {
  std::vector<std::shared_ptr<NSView>> views;
  if (auto me = self()) views.push_back(std::move(me));
  for (std::size_t index = 0; index < views.size(); ++index) {
    const auto view = views[index];
    views.insert(views.end(), view->subviews_.begin(), view->subviews_.end());
  }
  return views;
}

std::shared_ptr<NSView> NSView::self() {
  // The common base is a virtual one, which no static cast leaves.
  return std::dynamic_pointer_cast<NSView>(weak_from_this().lock());
}

// ── Geometry ──────────────────────────────────────────────────────────────────────────────────────

CGRect NSView::frame() const {
  return withShared([](const Shared& shared) { return shared.frame; });
}

CGRect NSView::bounds() const { return {{0, 0}, frame().size}; }

void NSView::setFrame(CGRect frame) {
  const CGRect newFrame = sanitised(frame);
  const CGRect oldFrame = withShared([&](Shared& shared) { return std::exchange(shared.frame, newFrame); });
  if (oldFrame == newFrame) return;
  const bool isResized = oldFrame.size != newFrame.size;
  if (isResized && autoresizesSubviews_) resizeSubviews(oldFrame.size);
  placeSurfaces();
  if (!isResized) return;
  if (const auto backing = layer()) backing->boundsChanged();
}

void NSView::resizeSubviews(CGSize oldSize) {
  const CGSize newSize = bounds().size;
  const auto views = subviews_;
  for (const auto& view : views) view->resizeWithOldSuperviewSize(oldSize, newSize);
}

void NSView::resizeWithOldSuperviewSize(CGSize oldSize, CGSize newSize) {
  const CGRect old = frame();
  const Span x =
      resized({old.origin.x, old.size.width}, autoresizingMask_ & 7, newSize.width - oldSize.width);
  const Span y =
      resized({old.origin.y, old.size.height}, autoresizingMask_ >> 3 & 7, newSize.height - oldSize.height);
  setFrame(CGRectMake(x.origin, y.origin, x.length, y.length));
}

CGSize NSView::convertSizeToBacking(CGSize size) const {
  const double scale =
      withShared([](const Shared& shared) { return shared.bestResolution ? shared.backingScale : 1; });
  return {size.width * scale, size.height * scale};
}

void NSView::setBackingScale(double scale) {
  const double old = withShared([&](Shared& shared) { return std::exchange(shared.backingScale, scale); });
  if (old == scale) return;
  placeSurface();
  if (const auto backing = layer()) backing->boundsChanged();
  callHost("viewDidChangeBackingProperties", [&] { viewDidChangeBackingProperties(); });
}

// ── Showing ───────────────────────────────────────────────────────────────────────────────────────

bool NSView::isHidden() const { return hidden_; }

void NSView::setHidden(bool hidden) {
  const bool wasHidden = isHiddenOrHasHiddenAncestor();
  hidden_ = hidden;
  const bool isHiddenNow = isHiddenOrHasHiddenAncestor();
  if (wasHidden != isHiddenNow) hiddenAncestryChanged(isHiddenNow);
}

bool NSView::isHiddenOrHasHiddenAncestor() const {
  if (hidden_) return true;
  const auto above = superview();
  return above && above->isHiddenOrHasHiddenAncestor();
}

void NSView::hiddenAncestryChanged(bool hidden) {
  updateLayerVisibility();
  callHost(hidden ? "viewDidHide" : "viewDidUnhide", [&] { hidden ? viewDidHide() : viewDidUnhide(); });
  const auto views = subviews_;
  for (const auto& view : views) {
    // A hook may have turned things round again, and the views below were told so then.
    const bool stillSo = isHiddenOrHasHiddenAncestor() == hidden && view->superview().get() == this;
    if (stillSo && !view->hidden_) view->hiddenAncestryChanged(hidden);
  }
}

void NSView::updateLayerVisibility() {
  const auto backing = layer();
  const auto shownIn = window();
  const bool hidden = isHiddenOrHasHiddenAncestor();
  if (const auto surface = backing ? backing->surface() : nullptr) surface->setHidden(hidden);
  const bool visible = backing && shownIn && shownIn->screen() && !hidden;
  if (std::exchange(layerVisible_, visible) != visible && backing) {
    callHost("setVisible", [&] { backing->setVisible(visible); });
  }
}

void NSView::updateLayerSurface() {
  const auto backing = layer();
  if (!backing) return;
  const auto shownIn = window();
  backing->setSurface(shownIn ? shownIn->makeSurface(backing) : nullptr);
  if (!backing->surface()) return;
  placeSurface();
  shownIn->contentView()->raiseSurfaces();
}

void NSView::placeSurfaces() {
  if (!window()) return;
  for (const auto& view : subtree()) view->placeSurface();
}

void NSView::placeSurface() {
  const auto backing = layer();
  const auto shownIn = window();
  const auto surface = backing && shownIn ? backing->surface() : nullptr;
  if (!surface) return;
  CGRect place = frame();
  for (auto above = superview(); above; above = above->superview()) {
    const CGPoint origin = above->frame().origin;
    place.origin.x += origin.x;
    place.origin.y += origin.y;
  }
  // Windows count from the top.
  const double top = shownIn->contentSize().height - CGRectGetMaxY(place);
  const double scale = shownIn->backingScaleFactor();
  surface->setFrame(CGRectMake(std::round(place.origin.x * scale), std::round(top * scale),
                               std::round(place.size.width * scale), std::round(place.size.height * scale)));
}

void NSView::raiseSurfaces() {
  const auto backing = layer();
  if (const auto surface = backing ? backing->surface() : nullptr) surface->raise();
  const auto views = subviews_;
  for (const auto& view : views) view->raiseSurfaces();
}

void NSView::screenChanged(double backingScale) {
  for (const auto& view : subtree()) {
    view->setBackingScale(backingScale);
    view->updateLayerVisibility();
    if (const auto backing = view->layer()) backing->screenChanged();
  }
}

void NSView::setNeedsDisplay(bool needsDisplay) {
  if (!needsDisplay) return;
  if (const auto backing = layer()) backing->setNeedsDisplay();
}

void NSView::setWantsBestResolutionOpenGLSurface(bool wants) {
  const bool had = withShared([&](Shared& shared) { return std::exchange(shared.bestResolution, wants); });
  if (had == wants) return;
  if (const auto backing = layer()) backing->boundsChanged();
}

void NSView::setWantsLayer(bool wants) {
  const auto old = layer();
  if (wants == (old != nullptr)) return;
  std::shared_ptr<CALayer> made;
  if (wants) {
    callHost("makeBackingLayer", [&] { made = makeBackingLayer(); });
  } else if (std::exchange(layerVisible_, false)) {
    old->setVisible(false);
  }
  if (made) made->setView(self());
  if (old) {
    old->setSurface(nullptr);
    old->willLeaveView();
    old->setView({});
  }
  withShared([&](Shared& shared) { std::swap(shared.layer, made); });
  updateLayerSurface();
  updateLayerVisibility();
}

std::shared_ptr<CALayer> NSView::layer() const {
  return withShared([](const Shared& shared) { return shared.layer; });
}

// ── Hooks ─────────────────────────────────────────────────────────────────────────────────────────

void NSView::drawRect(CGRect) {}

std::shared_ptr<CALayer> NSView::makeBackingLayer() { return nullptr; }

void NSView::viewWillMoveToWindow(const std::shared_ptr<NSWindow>&) {}

void NSView::viewDidMoveToWindow() {}

void NSView::viewDidHide() {}

void NSView::viewDidUnhide() {}

void NSView::viewDidChangeBackingProperties() {}

bool NSView::initWithCoder(NSCoder& coder) {
  std::optional<CGRect> decoded;
  bool hidden = false;
  bool threw = true;
  callHost("NSCoder", [&] {
    decoded = coder.decodeRect("NSFrame");
    hidden = coder.decodeBool("NSHidden");
    threw = false;
  });
  if (threw || !decoded) return false;
  setFrame(*decoded);
  hidden_ = hidden;
  return true;
}

}  // namespace QelUtilVideo
