#pragma once

namespace QelUtilVideo {

/// The version of the platform whose promises the seams keep. Any thread.
class SystemVersion {
 public:
  virtual ~SystemVersion() = default;
  [[nodiscard]] virtual bool isAtLeast(int major, int minor) = 0;
};

}  // namespace QelUtilVideo
