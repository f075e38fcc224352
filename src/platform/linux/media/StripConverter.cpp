#include "platform/linux/media/StripConverter.h"

#include <libyuv.h>

#include <algorithm>

namespace QelUtilVideo {

namespace {

/// Few enough that what is shuffled stays in the cache until it is converted; even, so that strips share
/// no chroma row.
constexpr std::size_t kStripRows = 16;

}  // namespace

StripConverter::StripConverter(const SourceRows& picture, Shuffle shuffle, const LockedPixels& target,
                               bool isFullRange)
    : picture_(picture),
      luma_(target.plane(0)),
      chroma_(target.plane(1)),
      shuffle_(shuffle),
      isFullRange_(isFullRange) {
  if (shuffle_) shuffled_.resize(kStripRows * static_cast<std::size_t>(picture_.width) * 4);
  if (isFullRange_) separate_.resize(2 * (kStripRows / 2) * static_cast<std::size_t>(chroma_.width));
}

void StripConverter::convert() {
  const auto height = static_cast<std::size_t>(picture_.height);
  for (std::size_t y = 0; y < height; y += kStripRows) {
    convertStrip(y, static_cast<int>(std::min(kStripRows, height - y)));
  }
}

void StripConverter::convertStrip(std::size_t y, int rows) {
  const std::uint8_t* pixels = picture_.row(y);
  int stride = picture_.stride;
  if (shuffle_) {
    shuffle_(pixels, stride, shuffled_.data(), 4 * picture_.width, picture_.width, rows);
    pixels = shuffled_.data();
    stride = 4 * picture_.width;
  }
  std::uint8_t* luma = luma_.row(y);
  std::uint8_t* chroma = chroma_.row(y / 2);
  if (!isFullRange_) {
    libyuv::ARGBToNV12(pixels, stride, luma, luma_.stride, chroma, chroma_.stride, picture_.width, rows);
    return;
  }
  std::uint8_t* blueDifference = separate_.data();
  std::uint8_t* redDifference = separate_.data() + separate_.size() / 2;
  libyuv::ARGBToJ420(pixels, stride, luma, luma_.stride, blueDifference, chroma_.width, redDifference,
                     chroma_.width, picture_.width, rows);
  libyuv::MergeUVPlane(blueDifference, chroma_.width, redDifference, chroma_.width, chroma, chroma_.stride,
                       chroma_.width, (rows + 1) / 2);
}

}  // namespace QelUtilVideo
