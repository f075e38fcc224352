#pragma once

#include "capture/windowlist/CaptureStrategies.h"
#include "capture/windowlist/Target.h"
#include "capture/windowlist/WindowInfo.h"

#include <QelUtilVideo/CapturableWindow.h>

#include <memory>
#include <string>

namespace QelUtilVideo::windowlist {

/// One application window as a target. Its identity is the window's number and owner; what may change while
/// it stays the same window is brought up to date by each listing and each capture.
class Window final : public Target, public CapturableWindow {
 public:
  Window(Root& root, WindowInfo info);

  [[nodiscard]] std::string uniqueID() const override;
  /// The application's name, and the window's where it has one.
  [[nodiscard]] std::string name() const override;
  /// Asks for the window's image, but not for its pixels, to find out.
  [[nodiscard]] bool isAvailable() const override;
  [[nodiscard]] bool isCamera() const override { return false; }
  [[nodiscard]] bool isScreen() const override { return true; }
  [[nodiscard]] bool isWindow() const override { return true; }

  [[nodiscard]] std::int32_t processIdentifier() const override { return info_.ownerProcess(); }
  [[nodiscard]] std::uint32_t windowID() const override { return info_.windowID; }
  [[nodiscard]] std::string windowName() const override;
  [[nodiscard]] bool isOnScreen() const override;
  [[nodiscard]] CGRect frame() const override;
  [[nodiscard]] std::shared_ptr<NSImage> snapshotImage() const override;

  /// The window as its target was made from it.
  [[nodiscard]] const WindowInfo& info() const { return info_; }
  /// Global display coordinates (points, origin top-left, y downward).
  [[nodiscard]] CGRect bounds() const;
  /// Takes over name, place and visibility. Any thread.
  void update(const WindowInfo& latest);

  /// A frame of the window with what belongs to it; nothing while it moves, changes its size, or cannot be
  /// captured; an error when it is gone.
  Result<CVPixelBufferRef> capture() override;

 private:
  /// What changes, as one.
  struct State {
    std::string windowName;
    bool isOnScreen = false;
    CGRect bounds = CGRectNull;
  };
  [[nodiscard]] static State stateOf(const WindowInfo& info);
  /// Answers whether the bounds are those of before.
  bool replaceState(const WindowInfo& latest);
  [[nodiscard]] std::shared_ptr<CGImage> image() const;

  Root& root_;
  const WindowInfo info_;
  Synchronised<State> state_;
  // Of the main thread.
  int boundsStability_;  ///< captures in a row with the same bounds, up to a limit
  CaptureFunction captureFunction_;
};

}  // namespace QelUtilVideo::windowlist
