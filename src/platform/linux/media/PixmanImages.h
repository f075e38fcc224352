#pragma once

#include "platform/Images.h"

namespace QelUtilVideo {

/// Draws with pixman: bilinear where a picture is scaled, byte for byte where it is not. Pictures of
/// straight alpha, and pictures whose rows are not aligned to four bytes, are drawn by way of a copy.
class PixmanImages : public Images {
 public:
  [[nodiscard]] std::unique_ptr<CGContext> CGBitmapContextCreate(std::byte* bytes,
                                                                 const CGImageLayout& layout) override;
};

}  // namespace QelUtilVideo
