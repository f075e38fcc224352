#pragma once

#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <memory>

namespace QelUtilVideo {

/// The windows of a server, kept up to date from its events: while nothing changes, asking costs one round
/// trip. Any thread.
class WindowTable {
 public:
  [[nodiscard]] static std::shared_ptr<WindowTable> make(std::shared_ptr<X11Connection> connection);
  virtual ~WindowTable() = default;

  /// As they are now; null when the server is lost.
  [[nodiscard]] virtual std::shared_ptr<const WindowList> current() = 0;
};

}  // namespace QelUtilVideo
