#pragma once

#include "platform/SystemVersion.h"

namespace QelUtilVideo {

/// The Linux backends keep the newest promises of every seam.
class LinuxSystemVersion final : public SystemVersion {
 public:
  [[nodiscard]] bool isAtLeast(int major, int minor) override {
    constexpr int newestMajor = 14;
    return major < newestMajor || (major == newestMajor && minor <= 0);
  }
};

}  // namespace QelUtilVideo
