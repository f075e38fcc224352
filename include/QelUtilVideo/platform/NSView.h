#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/NSObject.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace QelUtilVideo {

class CALayer;
class NSCoder;
class NSWindow;

enum NSAutoresizingMaskOptions : std::uint32_t {
  NSViewNotSizable = 0,
  NSViewMinXMargin = 1,
  NSViewWidthSizable = 2,
  NSViewMaxXMargin = 4,
  NSViewMinYMargin = 8,
  NSViewHeightSizable = 16,
  NSViewMaxYMargin = 32,
};

enum class NSWindowOrderingMode : std::int32_t { above = 1, below = -1 };

/// A rectangle in a window's tree of views. Coordinates are points, the origin is the bottom-left
/// corner of the superview, y grows upward. Main thread, except where a member says otherwise. Views
/// live in a `std::shared_ptr`; a superview holds its subviews, and a window its content view. The last
/// reference may be dropped on any thread.
class QEL_EXPORT NSView : public virtual NSObject {
 public:
  explicit NSView(CGRect frame);
  ~NSView() override;

  // ── Tree ────────────────────────────────────────────────────────────────────────────────────────
  /// The view that this one lies in, or null. Any thread.
  [[nodiscard]] std::shared_ptr<NSView> superview() const;
  /// Back to front.
  [[nodiscard]] const std::vector<std::shared_ptr<NSView>>& subviews() const { return subviews_; }
  /// The window that shows this view's tree, or null. Any thread.
  [[nodiscard]] std::shared_ptr<NSWindow> window() const;
  /// Puts `view` in front of all subviews. A view that lies elsewhere is moved; if it was the content
  /// view of a window, that gets an empty one. Null, this view itself or one of its ancestors: nothing
  /// happens.
  void addSubview(const std::shared_ptr<NSView>& view);
  /// Puts `view` right above or below `relative`; with no `relative` (or one that is not a subview)
  /// above or below all of them.
  void addSubview(const std::shared_ptr<NSView>& view, NSWindowOrderingMode place, const NSView* relative);
  void removeFromSuperview();

  // ── Geometry ────────────────────────────────────────────────────────────────────────────────────
  /// Any thread.
  [[nodiscard]] CGRect frame() const;
  /// The view's own rectangle, origin (0, 0). Any thread.
  [[nodiscard]] CGRect bounds() const;
  /// Moves and resizes; subviews follow by their masks when `autoresizesSubviews` is set: what the view
  /// gains or loses along an axis is shared evenly among the flexible parts of each subview. Sizes that
  /// are negative or not finite count as 0, and so do coordinates that are not finite.
  void setFrame(CGRect frame);
  [[nodiscard]] std::uint32_t autoresizingMask() const { return autoresizingMask_; }
  void setAutoresizingMask(std::uint32_t mask) { autoresizingMask_ = mask; }
  [[nodiscard]] bool autoresizesSubviews() const { return autoresizesSubviews_; }
  void setAutoresizesSubviews(bool resizes) { autoresizesSubviews_ = resizes; }
  /// Points to pixels of the surface that the view is drawn on: times the backing scale where the view
  /// wants the best resolution, else unchanged. Any thread.
  [[nodiscard]] CGSize convertSizeToBacking(CGSize size) const;

  // ── Showing ─────────────────────────────────────────────────────────────────────────────────────
  [[nodiscard]] virtual bool isHidden() const;
  virtual void setHidden(bool hidden);
  [[nodiscard]] bool isHiddenOrHasHiddenAncestor() const;
  /// Marks the view for drawing at the next opportunity.
  virtual void setNeedsDisplay(bool needsDisplay);
  void setWantsBestResolutionOpenGLSurface(bool wants);
  /// Gives the view a layer (from `makeBackingLayer`; null: none) or takes it away.
  void setWantsLayer(bool wants);
  /// Any thread.
  [[nodiscard]] std::shared_ptr<CALayer> layer() const;

  // ── Hooks for subclasses; all are called on the main thread unless said otherwise. What they throw
  // goes to the system log. ─────────────────────────────────────────────────────────────────────────
  /// Draws a view that has a layer, on the layer's drawing thread. A view without one is never drawn.
  /// The rectangle is in the view's own coordinates.
  virtual void drawRect(CGRect rect);
  virtual std::shared_ptr<CALayer> makeBackingLayer();
  /// Before the view's window changes to `window` (null: none).
  virtual void viewWillMoveToWindow(const std::shared_ptr<NSWindow>& window);
  virtual void viewDidMoveToWindow();
  /// The view went out of sight, or came back, through its own flag or an ancestor's.
  virtual void viewDidHide();
  virtual void viewDidUnhide();
  /// The backing scale changed.
  virtual void viewDidChangeBackingProperties();

 protected:
  /// The archive initialiser of subclasses: takes frame and hidden flag from the archive.
  /// False when it holds no frame, or threw; the view is then not to be used.
  [[nodiscard]] bool initWithCoder(NSCoder& coder);

 private:
  friend class CALayer;
  friend class NSWindow;

  /// What other threads may ask for; kept under one lock.
  struct Shared {
    CGRect frame;
    double backingScale = 1;
    bool bestResolution = false;
    std::weak_ptr<NSView> superview;
    std::weak_ptr<NSWindow> window;
    std::shared_ptr<CALayer> layer;
  };

  template <class F>
  auto withShared(F&& access) const;
  template <class F>
  auto withShared(F&& access);
  /// Cuts the view out of its superview, or out of the window whose content view it is.
  void detach();
  void attachTo(const std::shared_ptr<NSView>& superview);
  void moveToWindow(const std::shared_ptr<NSWindow>& window);
  void setBackingScale(double scale);
  void resizeSubviews(CGSize oldSize);
  void resizeWithOldSuperviewSize(CGSize oldSize, CGSize newSize);
  void hiddenAncestryChanged(bool hidden);
  void updateLayerVisibility();
  /// Gives the layer the part of the window that the view lies in, or takes it away.
  void updateLayerSurface();
  /// Moves what the subtree's views are drawn on to where they lie in the window.
  void placeSurfaces();
  void placeSurface();
  /// Stacks what the subtree's views are drawn on in the order of the views.
  void raiseSurfaces();
  /// The subtree's window is on another screen.
  void screenChanged(double backingScale);
  /// The view and everything below it, superviews first.
  [[nodiscard]] std::vector<std::shared_ptr<NSView>> subtree();
  /// Null while no `std::shared_ptr` holds the view.
  [[nodiscard]] std::shared_ptr<NSView> self();

  mutable std::mutex sharedMutex_;
  Shared shared_;
  std::vector<std::shared_ptr<NSView>> subviews_;
  std::uint32_t autoresizingMask_ = NSViewNotSizable;
  bool autoresizesSubviews_ = true;
  bool hidden_ = false;
  bool layerVisible_ = false;
};

}  // namespace QelUtilVideo
