#pragma once

#include "platform/linux/core/CameraPicture.h"

#include <cstdint>
#include <optional>
#include <string>

namespace QelUtilVideo {

/// A pixel format of V4L2 that frames can be made of.
struct CameraFormat {
  std::uint32_t code = 0;  ///< its four characters, the first one lowest
  CameraPixels pixels = CameraPixels::nv12;
  int rank = 0;         ///< the lower, the less work
  int memoryCount = 1;  ///< in how many pieces of memory its planes lie
};

/// None for a format that is not known.
[[nodiscard]] std::optional<CameraFormat> cameraFormat(std::uint32_t code);

/// For people, as in "YUYV".
[[nodiscard]] std::string cameraFormatName(std::uint32_t code);

}  // namespace QelUtilVideo
