#pragma once

#include "platform/Cursor.h"
#include "platform/Synchronised.h"
#include "platform/linux/x11/X11Connection.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace QelUtilVideo {

/// The pointer of an X server. The cursor's picture is asked for again only after the server said that it
/// shows another one, and made anew only when its serial number says so too.
class X11Cursor : public Cursor {
 public:
  /// `connection` may be null: there is no pointer then.
  explicit X11Cursor(std::shared_ptr<X11Connection> connection);
  ~X11Cursor() override;

  // Cursor
  [[nodiscard]] std::optional<CGPoint> CGEventGetLocation() override;
  [[nodiscard]] std::optional<NSCursor> currentSystemCursor() override;

 private:
  class Changes;
  struct Cached {
    std::uint64_t change = 0;  ///< how many changes there had been when it was asked for
    std::uint32_t serial = 0;
    NSCursor cursor;
  };
  [[nodiscard]] std::optional<Cached> fetch();

  std::shared_ptr<X11Connection> connection_;
  std::shared_ptr<Changes> changes_;  ///< null when the server has no pictures of cursors
  Synchronised<std::optional<Cached>> cached_;
};

}  // namespace QelUtilVideo
