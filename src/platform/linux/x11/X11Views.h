#pragma once

#include "platform/CallSafely.h"
#include "platform/Views.h"
#include "platform/linux/core/EventLoop.h"
#include "platform/linux/x11/X11Connection.h"

#include <memory>
#include <string>

namespace QelUtilVideo {

class X11Toolkit;

/// Windows on an X server. One point is one pixel.
class X11Views final : public Views {
 public:
  /// There are no windows when `connection` is null. The loop outlives the object. Somebody has to hand out
  /// the connection's events. `trouble` is told when the server cannot show views.
  X11Views(std::shared_ptr<X11Connection> connection, EventLoop& loop, TroubleHandler trouble);
  ~X11Views() override;

  // Views
  [[nodiscard]] std::unique_ptr<WindowBacking> makeWindow(CGSize size, const std::string& title,
                                                          std::weak_ptr<WindowClient> client) override;
  [[nodiscard]] std::unique_ptr<WindowBacking> makeWindowIn(std::uint32_t windowNumber,
                                                            std::weak_ptr<WindowClient> client) override;

 private:
  /// Made with the first window; null when there can be none.
  [[nodiscard]] std::shared_ptr<X11Toolkit> toolkit();

  std::shared_ptr<X11Connection> connection_;
  EventLoop& loop_;
  const TroubleHandler trouble_;
  std::shared_ptr<X11Toolkit> toolkit_;
};

}  // namespace QelUtilVideo
