#pragma once

#include "platform/Cursor.h"
#include "platform/Synchronised.h"
#include "platform/linux/x11/X11Connection.h"

#include <cstdint>
#include <optional>

namespace QelUtilVideo {

/// The pointer of an X server. The cursor's picture is made anew only when the server's serial number
/// says that it is another one.
class X11Cursor : public Cursor {
 public:
  /// `connection` may be null: there is no pointer then.
  explicit X11Cursor(std::shared_ptr<X11Connection> connection);

  // Cursor
  [[nodiscard]] std::optional<CGPoint> CGEventGetLocation() override;
  [[nodiscard]] std::optional<NSCursor> currentSystemCursor() override;

 private:
  struct Cached {
    std::uint32_t serial = 0;
    NSCursor cursor;
  };

  std::shared_ptr<X11Connection> connection_;
  Synchronised<std::optional<Cached>> cached_;
};

}  // namespace QelUtilVideo
