#pragma once

#include "platform/WindowServer.h"
#include "platform/linux/core/EventLoop.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/windowserver/WindowPixels.h"
#include "platform/linux/x11/windowserver/WindowTable.h"

#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// The windows of an X server.
class X11WindowServer final : public WindowServer {
 public:
  /// There are no windows when `connection` is null. Somebody takes events off it whenever there are some.
  /// The loop outlives the object.
  X11WindowServer(std::shared_ptr<X11Connection> connection, EventLoop& loop);
  ~X11WindowServer() override;

  [[nodiscard]] std::optional<std::vector<Dictionary>> CGWindowListCopyWindowInfo(
      std::uint32_t options, CGWindowID relativeTo) override;
  [[nodiscard]] std::vector<Dictionary> CGWindowListCreateDescriptionFromArray(
      std::span<const CGWindowID> windows) override;
  [[nodiscard]] std::shared_ptr<CGImage> CGWindowListCreateImage(const CGRect& rect, std::uint32_t options,
                                                                 CGWindowID window,
                                                                 std::uint32_t imageOptions) override;
  [[nodiscard]] std::shared_ptr<CGImage> CGWindowListCreateImageFromArray(
      const CGRect& rect, std::span<const CGWindowID> windows, std::uint32_t imageOptions) override;
  [[nodiscard]] std::optional<NSRunningApplication> runningApplicationWithProcessIdentifier(
      std::int32_t processIdentifier) override;

 private:
  const std::shared_ptr<X11Connection> connection_;
  std::shared_ptr<WindowTable> table_;    ///< null without a server
  std::shared_ptr<WindowPixels> pixels_;  ///< null without a server
};

}  // namespace QelUtilVideo
