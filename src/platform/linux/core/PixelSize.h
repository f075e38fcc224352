#pragma once

namespace QelUtilVideo {

struct PixelSize {
  int width = 1;
  int height = 1;
  friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

}  // namespace QelUtilVideo
