#pragma once

#include "render/ExifCorners.h"
#include "support/ReferenceColors.h"

#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

namespace QelUtilVideo {

struct PixelCount {
  std::size_t width;
  std::size_t height;
};

struct YCbCr {
  std::uint8_t y, cb, cr;
};

/// A picture of three by three patches, each of a colour of its own, the one in the corner where the
/// stored rows begin unlike all others. Rows are as short as they can be.
class TestCard {
 public:
  explicit TestCard(PixelCount size) : size_(size) {
    const std::size_t chromaWidth = (size.width + 1) / 2;
    const std::size_t chromaHeight = (size.height + 1) / 2;
    const std::size_t lumaSize = size.width * size.height;
    auto bytes = std::make_shared<std::vector<std::byte>>(lumaSize + chromaWidth * 2 * chromaHeight);
    std::byte* chroma = bytes->data() + lumaSize;
    for (std::size_t y = 0; y < size.height; ++y) {
      for (std::size_t x = 0; x < size.width; ++x) {
        const YCbCr& code = codes[patchAt(x, y)];
        (*bytes)[y * size.width + x] = std::byte{code.y};
        std::byte* pair = chroma + (y / 2 * chromaWidth + x / 2) * 2;
        pair[0] = std::byte{code.cb};
        pair[1] = std::byte{code.cr};
      }
    }
    const std::vector<PixelPlane> planes{{bytes->data(), size.width, size.height, size.width},
                                         {chroma, chromaWidth, chromaHeight, chromaWidth * 2}};
    EXPECT_EQ(CVPixelBufferCreateWithPlanarBytes(
                  size.width, size.height, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, planes,
                  [bytes] {}, pixels_),
              kCVReturnSuccess);
  }

  [[nodiscard]] const CVPixelBufferRef& pixels() const { return pixels_; }
  [[nodiscard]] PixelCount size() const { return size_; }

  /// The colour at a place of the stored picture, in its pixels; absent close to another patch, where
  /// the colours run into each other.
  [[nodiscard]] std::optional<Color> colorAt(double x, double y) const {
    constexpr double margin = 4;
    const auto patch = [&](double dx, double dy) {
      const auto within = [](double place, std::size_t length) {
        return static_cast<std::size_t>(std::clamp(place, 0.0, static_cast<double>(length) - 1));
      };
      return patchAt(within(x + dx, size_.width), within(y + dy, size_.height));
    };
    const std::size_t here = patch(0, 0);
    for (const double dx : {-margin, margin}) {
      for (const double dy : {-margin, margin}) {
        if (patch(dx, dy) != here) return std::nullopt;
      }
    }
    return rgb(codes[here]);
  }

 private:
  static constexpr std::array<YCbCr, 9> codes{{{235, 128, 128},
                                               {81, 90, 240},
                                               {145, 54, 34},
                                               {41, 240, 110},
                                               {126, 128, 128},
                                               {16, 128, 128},
                                               {170, 166, 16},
                                               {106, 202, 222},
                                               {90, 100, 150}}};

  /// Patches meet at even pixels, so that no chroma sample lies in two of them.
  [[nodiscard]] std::size_t patchAt(std::size_t x, std::size_t y) const {
    const auto third = [](std::size_t place, std::size_t length) {
      const std::size_t side = length / 3 & ~std::size_t{1};
      return std::min<std::size_t>(place / side, 2);
    };
    return third(y, size_.height) * 3 + third(x, size_.width);
  }

  static Color rgb(YCbCr code) {
    const double y = 1.1643 * (code.y / 255.0 - 0.0625);
    const double cb = code.cb / 255.0 - 0.5;
    const double cr = code.cr / 255.0 - 0.5;
    const auto codeValue = [](double component) { return std::clamp(component, 0.0, 1.0) * 255; };
    return {codeValue(y + 1.5958 * cr), codeValue(y - 0.39173 * cb - 0.81290 * cr),
            codeValue(y + 2.017 * cb)};
  }

  PixelCount size_;
  CVPixelBufferRef pixels_;
};

/// How the card is to be seen.
struct Showing {
  CGImagePropertyOrientation orientation = CGImagePropertyOrientation::up;
  bool fit = true;
  double turned = 0;  ///< degrees clockwise beyond the orientation
};

/// What is wrong with a picture of the card; empty: nothing. Pixels near an edge are not judged.
inline std::string faultIn(const CGImageRef& image, PixelCount surface, const TestCard& card,
                           const Showing& showing, const Color& background) {
  if (!image) return "no picture";
  if (image->width() != surface.width || image->height() != surface.height)
    return "a picture of another size";
  const bool sideways = swapsSides(showing.orientation);
  const auto shownWidth = static_cast<double>(sideways ? card.size().height : card.size().width);
  const auto shownHeight = static_cast<double>(sideways ? card.size().width : card.size().height);
  const double scaleX = static_cast<double>(surface.width) / shownWidth;
  const double scaleY = static_cast<double>(surface.height) / shownHeight;
  const double scale = showing.fit ? std::min(scaleX, scaleY) : std::max(scaleX, scaleY);
  const double middleX = static_cast<double>(surface.width) / 2;
  const double middleY = static_cast<double>(surface.height) / 2;
  const double angle = showing.turned / 180 * std::numbers::pi;
  const double cosine = std::cos(angle), sine = std::sin(angle);

  const auto bytes = image->dataProvider()->bytes();
  std::size_t judged = 0;
  for (std::size_t row = 0; row < surface.height; ++row) {
    for (std::size_t column = 0; column < surface.width; ++column) {
      // Where the place lies before the turn about the middle.
      const double across = static_cast<double>(column) + 0.5 - middleX;
      const double down = static_cast<double>(row) + 0.5 - middleY;
      const double x = (across * cosine + down * sine) / (shownWidth * scale) + 0.5;
      const double y = (down * cosine - across * sine) / (shownHeight * scale) + 0.5;
      const double outside =
          std::max({-x * shownWidth, (x - 1) * shownWidth, -y * shownHeight, (y - 1) * shownHeight});
      if (std::abs(outside) * scale < 1) continue;
      std::optional<Color> expected = background;
      if (outside < 0) {
        const PicturePoint stored = storedPoint(showing.orientation, {x, y});
        expected = card.colorAt(stored.x * static_cast<double>(card.size().width),
                                stored.y * static_cast<double>(card.size().height));
      }
      if (!expected) continue;
      judged += 1;
      const std::byte* pixel = bytes->data() + row * image->layout().bytesPerRow + column * 4;
      for (std::size_t component = 0; component < 3; ++component) {
        const auto found = std::to_integer<int>(pixel[2 - component]);
        if (std::abs(found - (*expected)[component]) > 1) {
          return "at " + std::to_string(column) + ", " + std::to_string(row) + " component " +
                 std::to_string(component) + " is " + std::to_string(found) + " instead of " +
                 std::to_string((*expected)[component]);
        }
      }
    }
  }
  return judged > surface.width * surface.height / 8 ? "" : "too few pixels to judge";
}

}  // namespace QelUtilVideo
