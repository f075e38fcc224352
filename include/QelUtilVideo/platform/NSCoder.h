#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>

#include <optional>
#include <string_view>

namespace QelUtilVideo {

/// An archive from which a view can be read. Hosts that keep their layouts in files implement it. Asked on
/// the thread that makes the view; an archive that throws holds no view.
class NSCoder {
 public:
  virtual ~NSCoder() = default;
  /// The rectangle stored under `key` ("NSFrame": a view's frame), or nothing.
  [[nodiscard]] virtual std::optional<CGRect> decodeRect(std::string_view key) = 0;
  /// The flag stored under `key` ("NSHidden": a view's hidden flag); absent reads as false.
  [[nodiscard]] virtual bool decodeBool(std::string_view key) = 0;
};

}  // namespace QelUtilVideo
