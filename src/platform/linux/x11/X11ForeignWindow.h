#pragma once

#include "platform/linux/x11/WindowWatch.h"

#include <utility>

namespace QelUtilVideo {

/// A window that somebody else made, in which we show surfaces and of which we change nothing. Main thread.
class X11ForeignWindow final : public WindowBacking {
 public:
  X11ForeignWindow(std::shared_ptr<X11Toolkit> toolkit, xcb_window_t window,
                   std::weak_ptr<WindowClient> client)
      : watch_(std::move(toolkit), window, WindowEvents::Owner::others, std::move(client)) {}

  /// There is no such window.
  [[nodiscard]] bool isGone() const { return watch_.isGone(); }

  // WindowBacking
  [[nodiscard]] std::uint32_t windowNumber() const override { return watch_.window(); }
  [[nodiscard]] State state() const override { return watch_.state(); }
  [[nodiscard]] std::shared_ptr<ViewSurface> makeSurface(std::weak_ptr<ViewSurfaceClient> client) override {
    return watch_.makeSurface(std::move(client));
  }
  void setTitle(const std::string&) override {}
  void setContentSize(CGSize) override {}
  void orderFront() override {}
  void orderOut() override {}

 private:
  WindowWatch watch_;
};

}  // namespace QelUtilVideo
