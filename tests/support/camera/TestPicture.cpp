#include "support/camera/TestPicture.h"

#include "support/camera/ColourBars.h"

#include <linux/videodev2.h>
#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace qeltest {

namespace {

/// The bytes of one unit of a packed format, by the letters of what they are; the second luma is "z".
const char* packedLetters(std::uint32_t format) {
  switch (format) {
    case V4L2_PIX_FMT_YUYV:
      return "yuzv";
    case V4L2_PIX_FMT_UYVY:
      return "uyvz";
    case V4L2_PIX_FMT_YVYU:
      return "yvzu";
    case V4L2_PIX_FMT_VYUY:
      return "vyuz";
    case V4L2_PIX_FMT_RGB24:
      return "rgb";
    case V4L2_PIX_FMT_BGR24:
      return "bgr";
    case V4L2_PIX_FMT_BGR32:
    case V4L2_PIX_FMT_XBGR32:
      return "bgrx";
    case V4L2_PIX_FMT_GREY:
      return "y";
    default:
      return nullptr;
  }
}

/// The planes of a planar format: luma and then, with the divisors of their width and height, the chroma
/// ones.
struct Planes {
  const char* chroma;  ///< the letters of each plane's bytes, planes apart by a blank
  std::uint32_t columns, rows;
};

const Planes* planesOf(std::uint32_t format) {
  static constexpr Planes nv12{"uv", 2, 2}, nv21{"vu", 2, 2}, yuv420{"u v", 2, 2}, yvu420{"v u", 2, 2},
      yuv422{"u v", 2, 1};
  switch (format) {
    case V4L2_PIX_FMT_NV12:
      return &nv12;
    case V4L2_PIX_FMT_NV21:
      return &nv21;
    case V4L2_PIX_FMT_YUV420:
      return &yuv420;
    case V4L2_PIX_FMT_YVU420:
      return &yvu420;
    case V4L2_PIX_FMT_YUV422P:
      return &yuv422;
    default:
      return nullptr;
  }
}

bool isJpeg(std::uint32_t format) { return format == V4L2_PIX_FMT_MJPEG || format == V4L2_PIX_FMT_JPEG; }

class Painter {
 public:
  Painter(const PictureShape& shape, std::uint32_t frame)
      : shape_(shape), markX_(frame * kMarkSide % std::max(shape.width, 1U)) {}

  [[nodiscard]] const BarColour& at(std::uint32_t x, std::uint32_t y) const {
    const std::uint32_t top = shape_.height - shape_.height / 4;
    const bool isMarked = y >= top && y < top + kMarkSide && x >= markX_ && x < markX_ + kMarkSide;
    return isMarked ? kMarkColour : barAt(std::min(x, shape_.width - 1), shape_.width);
  }

  [[nodiscard]] std::uint8_t letter(char letter, std::uint32_t x, std::uint32_t y) const {
    const BarColour& colour = at(letter == 'z' ? x + 1 : x, y);
    switch (letter) {
      case 'y':
      case 'z':
        return colour.y;
      case 'u':
        return colour.cb;
      case 'v':
        return colour.cr;
      case 'r':
        return colour.red;
      case 'g':
        return colour.green;
      case 'b':
        return colour.blue;
      default:
        return 0;
    }
  }

  void packed(std::span<std::uint8_t> picture, std::span<const char> letters) const {
    const std::uint32_t pixels = letters.size() == 4 && letters[3] != 'x' ? 2 : 1;
    for (std::uint32_t y = 0; y < shape_.height; ++y) {
      std::size_t at = std::size_t{y} * shape_.bytesPerLine;
      for (std::uint32_t x = 0; x < shape_.width; x += pixels) {
        for (const char each : letters) picture[at++] = letter(each, x, y);
      }
    }
  }

  void planar(std::span<std::uint8_t> picture, const Planes& planes) const {
    packed(picture, std::array{'y'});
    const std::string_view chroma = planes.chroma;
    const bool isInterleaved = chroma.find(' ') == std::string_view::npos;
    const std::uint32_t stride = isInterleaved ? shape_.bytesPerLine : shape_.bytesPerLine / planes.columns;
    const std::uint32_t height = (shape_.height + planes.rows - 1) / planes.rows;
    const std::uint32_t width = (shape_.width + planes.columns - 1) / planes.columns;
    std::size_t start = std::size_t{shape_.bytesPerLine} * shape_.height;
    for (std::size_t plane = 0; plane < (isInterleaved ? 1U : 2U);
         ++plane, start += std::size_t{stride} * height) {
      for (std::uint32_t y = 0; y < height; ++y) {
        std::size_t at = start + std::size_t{y} * stride;
        for (std::uint32_t x = 0; x < width; ++x) {
          const auto letters = isInterleaved ? chroma : chroma.substr(2 * plane, 1);
          for (const char each : letters) picture[at++] = letter(each, x * planes.columns, y * planes.rows);
        }
      }
    }
  }

 private:
  const PictureShape& shape_;
  const std::uint32_t markX_;
};

std::vector<std::uint8_t> jpeg(const PictureShape& shape, std::uint32_t frame) {
  PictureShape raw = pictureShape(V4L2_PIX_FMT_RGB24, shape.width, shape.height, 0);
  const std::vector<std::uint8_t> pixels = testPicture(raw, frame);
  const tjhandle compressor = tjInitCompress();
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  constexpr int quality = 95;
  (void)tjCompress2(compressor, pixels.data(), static_cast<int>(raw.width),
                    static_cast<int>(raw.bytesPerLine), static_cast<int>(raw.height), TJPF_RGB, &bytes, &size,
                    TJSAMP_422, quality, 0);
  std::vector<std::uint8_t> picture(bytes, bytes + size);
  tjFree(bytes);
  tjDestroy(compressor);
  return picture;
}

}  // namespace

PictureShape pictureShape(std::uint32_t format, std::uint32_t width, std::uint32_t height,
                          std::uint32_t padding) {
  PictureShape shape{format, width, height, 0, 0};
  if (const char* letters = packedLetters(format)) {
    const std::string_view unit = letters;
    const std::uint32_t pixels = unit.size() == 4 && unit[3] != 'x' ? 2 : 1;
    shape.bytesPerLine = (width + pixels - 1) / pixels * static_cast<std::uint32_t>(unit.size()) + padding;
    shape.size = shape.bytesPerLine * height;
  } else if (const Planes* planes = planesOf(format)) {
    shape.bytesPerLine = (width + 1) / 2 * 2 + padding;
    shape.size = shape.bytesPerLine * (height + (height + planes->rows - 1) / planes->rows);
  } else {
    shape.size = 2 * width * height + 4096;
  }
  return shape;
}

std::vector<std::uint8_t> testPicture(const PictureShape& shape, std::uint32_t frame) {
  if (isJpeg(shape.format)) return jpeg(shape, frame);
  std::vector<std::uint8_t> picture(shape.size);
  const Painter painter(shape, frame);
  if (const char* letters = packedLetters(shape.format)) {
    painter.packed(picture, std::string_view(letters));
  } else if (const Planes* planes = planesOf(shape.format)) {
    painter.planar(picture, *planes);
  }
  return picture;
}

}  // namespace qeltest
