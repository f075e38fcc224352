#include "platform/linux/media/JpegDecoder.h"

#include "platform/linux/media/CodeRange.h"

#include <libyuv.h>
#include <turbojpeg.h>

#include <array>
#include <memory>
#include <string_view>

namespace QelUtilVideo {

/// A size, and how the chroma is sampled.
struct JpegDecoder::Header {
  int width = 0;
  int height = 0;
  int subsampling = -1;
  int colours = -1;

  [[nodiscard]] bool isUseful() const {
    constexpr int mostSide = 16384;
    const bool isSized = width > 0 && height > 0 && width <= mostSide && height <= mostSide;
    return isSized && subsampling >= 0 && subsampling < TJ_NUMSAMP &&
           (colours == TJCS_YCbCr || colours == TJCS_GRAY);
  }
  [[nodiscard]] bool isGrey() const { return subsampling == TJSAMP_GRAY; }
  [[nodiscard]] int planeWidth(int plane) const { return tjPlaneWidth(plane, width, subsampling); }
  [[nodiscard]] int planeHeight(int plane) const { return tjPlaneHeight(plane, height, subsampling); }
  [[nodiscard]] std::size_t planeSize(int plane) const {
    return static_cast<std::size_t>(planeWidth(plane)) * static_cast<std::size_t>(planeHeight(plane));
  }
};

namespace {

struct Destroy {
  void operator()(void* decoder) const { (void)tjDestroy(decoder); }
};

const std::uint8_t* bytesOf(std::span<const std::byte> file) {
  return reinterpret_cast<const std::uint8_t*>(file.data());
}

std::uint8_t* rowsOf(const PixelPlane& plane) { return reinterpret_cast<std::uint8_t*>(plane.baseAddress); }

/// Many cameras leave bytes between the parts of a file, which harm nobody.
bool isHarmless(void* decoder) {
  return tjGetErrorCode(decoder) == TJERR_WARNING &&
         std::string_view(tjGetErrorStr2(decoder)).find("extraneous bytes") != std::string_view::npos;
}

}  // namespace

CVPixelBufferRef JpegDecoder::decode(std::span<const std::byte> file, const MakeFrame& makeFrame) {
  // A fresh one each time: another keeps the Huffman tables of files that had some.
  const std::unique_ptr<void, Destroy> decoder(tjInitDecompress());
  if (!decoder || file.empty()) return nullptr;
  Header header;  // stays as it is where the file says no size
  if (tjDecompressHeader3(decoder.get(), bytesOf(file), file.size(), &header.width, &header.height,
                          &header.subsampling, &header.colours) != 0 ||
      !header.isUseful()) {
    return nullptr;
  }
  auto frame = makeFrame(static_cast<std::size_t>(header.width), static_cast<std::size_t>(header.height));
  if (!frame || !decodeInto(*frame, decoder.get(), file, header)) return nullptr;
  return frame;
}

bool JpegDecoder::decodeInto(CVPixelBuffer& frame, void* decoder, std::span<const std::byte> file,
                             const Header& header) {
  const PixelPlane& luma = frame.planes()[0];
  const auto stride = static_cast<int>(luma.bytesPerRow);
  // The decoder fills whole blocks.
  const bool fits = header.planeHeight(0) == header.height && header.planeWidth(0) <= stride;
  if (!fits) luma_.resize(header.planeSize(0));
  if (!header.isGrey()) {
    blueDifference_.resize(header.planeSize(1));
    redDifference_.resize(header.planeSize(2));
  }
  std::array<unsigned char*, 3> planes{fits ? rowsOf(luma) : luma_.data(), blueDifference_.data(),
                                       redDifference_.data()};
  std::array<int, 3> strides{fits ? stride : header.planeWidth(0), header.isGrey() ? 0 : header.planeWidth(1),
                             header.isGrey() ? 0 : header.planeWidth(2)};
  if (tjDecompressToYUVPlanes(decoder, bytesOf(file), file.size(), planes.data(), header.width,
                              strides.data(), header.height, 0) != 0 &&
      !isHarmless(decoder)) {
    return false;
  }
  if (!fits) {
    libyuv::CopyPlane(luma_.data(), strides[0], rowsOf(luma), stride, header.width, header.height);
  }
  narrowLuma({rowsOf(luma), luma.bytesPerRow, luma.width, luma.height});
  interleave(frame, header);
  return true;
}

void JpegDecoder::interleave(CVPixelBuffer& frame, const Header& header) {
  const PixelPlane& chroma = frame.planes()[1];
  const auto width = static_cast<int>(chroma.width), height = static_cast<int>(chroma.height);
  const auto stride = static_cast<int>(chroma.bytesPerRow);
  if (header.isGrey()) {
    libyuv::SetPlane(rowsOf(chroma), stride, 2 * width, height, 128);
    return;
  }
  std::array<const std::uint8_t*, 2> planes{blueDifference_.data(), redDifference_.data()};
  const int ownWidth = header.planeWidth(1), ownHeight = header.planeHeight(1);
  if (ownWidth != width || ownHeight != height) {
    const auto size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    scaled_.resize(2 * size);
    for (std::size_t i = 0; i < planes.size(); ++i) {
      std::uint8_t* scaled = scaled_.data() + i * size;
      (void)libyuv::ScalePlane(planes[i], ownWidth, ownWidth, ownHeight, scaled, width, width, height,
                               libyuv::kFilterBox);
      planes[i] = scaled;
    }
  }
  libyuv::MergeUVPlane(planes[0], width, planes[1], width, rowsOf(chroma), stride, width, height);
  narrowChroma({rowsOf(chroma), chroma.bytesPerRow, 2 * chroma.width, chroma.height});
}

}  // namespace QelUtilVideo
