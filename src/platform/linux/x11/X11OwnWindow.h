#pragma once

#include "platform/linux/x11/EventSelection.h"
#include "platform/linux/x11/OwnedWindow.h"
#include "platform/linux/x11/WindowWatch.h"

#include <memory>
#include <string>

namespace QelUtilVideo {

/// A top-level window of our own, black where no surface lies, on good terms with window managers. Without
/// one it is shown at the top left and takes the keyboard itself. Main thread.
class X11OwnWindow final : public WindowBacking {
 public:
  /// Null when the server refuses or is lost. Sizes as in `Views`, at most 32,767 pixels.
  static std::unique_ptr<X11OwnWindow> make(std::shared_ptr<X11Toolkit> toolkit, CGSize size,
                                            const std::string& title, std::weak_ptr<WindowClient> client);

  X11OwnWindow(std::shared_ptr<X11Toolkit> toolkit, xcb_window_t id, std::weak_ptr<WindowClient> client);
  ~X11OwnWindow() override;

  // WindowBacking
  [[nodiscard]] std::uint32_t windowNumber() const override { return window_.id(); }
  [[nodiscard]] State state() const override { return watch_.state(); }
  [[nodiscard]] std::shared_ptr<ViewSurface> makeSurface(std::weak_ptr<ViewSurfaceClient> client) override {
    return watch_.makeSurface(std::move(client));
  }
  void setTitle(const std::string& title) override;
  void setContentSize(CGSize size) override;
  void orderFront() override;
  void orderOut() override;

 private:
  [[nodiscard]] bool isGone() const { return watch_.isGone(); }
  /// Says to window managers what it is and what it understands.
  void introduceItself();
  void askForKeyboard(const X11Connection::Use& use) const;

  const std::shared_ptr<X11Toolkit> toolkit_;
  OwnedWindow window_;
  EventSelection keys_;
  WindowWatch watch_;
};

}  // namespace QelUtilVideo
