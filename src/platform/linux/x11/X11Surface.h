#pragma once

#include "platform/Views.h"
#include "platform/linux/x11/EventSelection.h"
#include "platform/linux/x11/OwnedWindow.h"
#include "platform/linux/x11/X11Toolkit.h"

#include <cstdint>
#include <memory>

namespace QelUtilVideo {

/// A child window that takes no input: the keys and the pointer over it are its parent's. Main thread,
/// except where `ViewSurface` says otherwise.
class X11Surface final : public ViewSurface {
 public:
  /// Null when the parent is gone or cannot have such a child.
  static std::shared_ptr<X11Surface> make(std::shared_ptr<X11Toolkit> toolkit, xcb_window_t parent,
                                          std::weak_ptr<ViewSurfaceClient> client);

  X11Surface(std::shared_ptr<X11Toolkit> toolkit, xcb_window_t id, std::weak_ptr<ViewSurfaceClient> client);
  ~X11Surface() override;

  /// The window that it lies in is not shown any more: when it comes back, this shows black and not what
  /// was on the screen in between.
  void restoreBackground();

  // ViewSurface
  [[nodiscard]] const NativeWindow& nativeWindow() const override { return native_; }
  void setFrame(const CGRect& pixels) override;
  void setHidden(bool hidden) override;
  void raise() override;

 private:
  class Events;
  struct News;
  struct Frame {
    std::int16_t x = 0;
    std::int16_t y = 0;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    [[nodiscard]] bool isEmpty() const { return width == 0 || height == 0; }
    friend bool operator==(const Frame&, const Frame&) = default;
  };

  void handle(const News& news);
  [[nodiscard]] bool isGone() const { return window_.id() == XCB_NONE; }
  /// Maps the window or takes it away, whichever is due.
  void updateMapping();
  /// Without one the server leaves new pixels as they are, so that nothing flashes black when it grows.
  void setBackground(bool isBlack);

  const std::shared_ptr<X11Toolkit> toolkit_;
  OwnedWindow window_;
  const NativeWindow native_;
  const std::weak_ptr<ViewSurfaceClient> client_;
  Frame frame_;
  bool isHidden_ = true;
  bool isMapped_ = false;
  bool hasBackground_ = true;
  bool isOccluded_ = false;
  const std::shared_ptr<Events> events_;
  EventSelection selection_;
};

}  // namespace QelUtilVideo
