#include "platform/linux/media/JpegDecoder.h"

#include "platform/linux/media/CodeRange.h"
#include "platform/linux/media/LockedPixels.h"

#include <libyuv.h>
#include <turbojpeg.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <type_traits>

namespace QelUtilVideo {

namespace {

struct DestroyDecoder {
  void operator()(void* decoder) const { tjDestroy(decoder); }
};
using Decoder = std::unique_ptr<std::remove_pointer_t<tjhandle>, DestroyDecoder>;

const unsigned char* bytesOf(std::span<const std::byte> file) {
  return reinterpret_cast<const unsigned char*>(file.data());
}

/// Whether the end-of-image marker is there. The decoder tells its first warning only, so that a missing end
/// can hide behind a warning that is harmless.
bool hasEnd(std::span<const std::byte> file) {
  constexpr unsigned lead = 0xFF, stuffing = 0x00, temporary = 0x01, firstRestart = 0xD0, start = 0xD8,
                     end = 0xD9;
  std::size_t at = 0;
  while (at + 1 < file.size()) {
    const auto code = std::to_integer<unsigned>(file[at + 1]);
    if (std::to_integer<unsigned>(file[at]) != lead || code == lead || code == stuffing) {
      at += 1;
      continue;
    }
    if (code == end) return true;
    at += 2;
    if (code == temporary || (code >= firstRestart && code <= start)) continue;
    if (at + 1 >= file.size()) return false;
    at += std::to_integer<std::size_t>(file[at]) << 8 | std::to_integer<std::size_t>(file[at + 1]);
  }
  return false;
}

/// Whether a call that returned `result` did what it should.
bool succeeded(int result, tjhandle decoder, std::span<const std::byte> file) {
  if (result == 0) return true;
  if (tjGetErrorCode(decoder) != TJERR_WARNING) return false;
  const std::string_view warning = tjGetErrorStr2(decoder);
  return warning.find("extraneous bytes before marker") != std::string_view::npos && hasEnd(file);
}

/// Two rows of one plane that become one; `second` may be the first again.
struct ChromaRow {
  const std::uint8_t* first;
  const std::uint8_t* second;
};

std::uint8_t mean(unsigned sum, unsigned shift) {
  return static_cast<std::uint8_t>((sum + (1U << shift >> 1)) >> shift);
}

/// Chroma of half the width already.
void interleaveColumns(ChromaRow blue, ChromaRow red, std::uint8_t* target, std::size_t width) {
  for (std::size_t x = 0; x < width; ++x) {
    target[2 * x] = videoChroma(mean(blue.first[x] + blue.second[x], 1));
    target[2 * x + 1] = videoChroma(mean(red.first[x] + red.second[x], 1));
  }
}

/// Chroma of the whole width, `columns`: two become one, and at an odd edge one.
void interleavePairs(ChromaRow blue, ChromaRow red, std::uint8_t* target, std::size_t columns) {
  const auto four = [](ChromaRow row, std::size_t x) {
    return mean(row.first[x] + row.first[x + 1] + row.second[x] + row.second[x + 1], 2);
  };
  const std::size_t pairs = columns / 2;
  for (std::size_t x = 0; x < pairs; ++x) {
    target[2 * x] = videoChroma(four(blue, 2 * x));
    target[2 * x + 1] = videoChroma(four(red, 2 * x));
  }
  const std::size_t last = columns - 1;
  if (columns % 2 == 0) return;
  interleaveColumns({blue.first + last, blue.second + last}, {red.first + last, red.second + last},
                    target + 2 * pairs, 1);
}

/// Chroma of a quarter of the width: each column twice.
void interleaveTwice(ChromaRow blue, ChromaRow red, std::uint8_t* target, std::size_t width) {
  for (std::size_t x = 0; x < width; ++x) {
    interleaveColumns({blue.first + x / 2, blue.second + x / 2}, {red.first + x / 2, red.second + x / 2},
                      target + 2 * x, 1);
  }
}

/// Chroma as the file has it becomes interleaved 4:2:0 in video range.
void interleave(const SourceRows& blue, const SourceRows& red, int subsampling, const Rows& target,
                int width) {
  const bool isHalved = blue.height == target.height;
  const std::size_t last = static_cast<std::size_t>(blue.height) - 1;
  for (std::size_t y = 0; y < static_cast<std::size_t>(target.height); ++y) {
    const std::size_t first = isHalved ? y : 2 * y;
    const std::size_t second = isHalved ? y : std::min(2 * y + 1, last);
    const ChromaRow blues{blue.row(first), blue.row(second)}, reds{red.row(first), red.row(second)};
    const auto columns = static_cast<std::size_t>(target.width);
    if (subsampling == TJSAMP_444 || subsampling == TJSAMP_440) {
      interleavePairs(blues, reds, target.row(y), static_cast<std::size_t>(width));
    } else if (subsampling == TJSAMP_411) {
      interleaveTwice(blues, reds, target.row(y), columns);
    } else {
      interleaveColumns(blues, reds, target.row(y), columns);
    }
  }
}

/// Room for a plane as the decoder writes it: `width` and `height` include the padding of its blocks.
Rows scratchPlane(std::vector<std::uint8_t>& memory, int width, int height) {
  const std::size_t size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  if (memory.size() != size) memory = std::vector<std::uint8_t>(size);  // gives back what a huge picture took
  return {memory.data(), width, width, height};
}

}  // namespace

struct JpegDecoder::Header {
  int width = 0;  ///< stays 0 where the file has no picture
  int height = 0;
  int subsampling = -1;
  int colourSpace = -1;

  [[nodiscard]] bool isUsable(std::size_t fileSize) const {
    const bool isKnown = subsampling == TJSAMP_444 || subsampling == TJSAMP_422 ||
                         subsampling == TJSAMP_420 || subsampling == TJSAMP_GRAY ||
                         subsampling == TJSAMP_440 || subsampling == TJSAMP_411;
    if (width < 1 || height < 1 || !isKnown) return false;
    if (colourSpace != TJCS_YCbCr && colourSpace != TJCS_GRAY) return false;
    // Each block of eight by eight takes a bit at least, so that a few bytes cannot ask for a lot of memory.
    const auto blocks =
        static_cast<std::size_t>((width + 7) / 8) * static_cast<std::size_t>((height + 7) / 8);
    return fileSize >= blocks / 8;
  }
};

CVPixelBufferRef JpegDecoder::decode(std::span<const std::byte> bytes, const MakeFrame& makeFrame) {
  // The decoder reads the header twice, and whoever feeds the camera may write there meanwhile.
  file_.assign(bytes.begin(), bytes.end());
  const std::span<const std::byte> file = file_;
  // One that has decoded a picture with Huffman tables would use them for a picture without.
  const Decoder decoder(tjInitDecompress());
  if (!decoder || file.empty()) return nullptr;
  Header header;
  const int read = tjDecompressHeader3(decoder.get(), bytesOf(file), file.size(), &header.width,
                                       &header.height, &header.subsampling, &header.colourSpace);
  if (!succeeded(read, decoder.get(), file) || !header.isUsable(file.size())) return nullptr;
  CVPixelBufferRef frame =
      makeFrame(static_cast<std::size_t>(header.width), static_cast<std::size_t>(header.height));
  if (!frame) return nullptr;
  return decodeInto(LockedPixels(*frame), decoder.get(), file, header) ? frame : nullptr;
}

bool JpegDecoder::decodeInto(const LockedPixels& frame, void* decoder, std::span<const std::byte> file,
                             const Header& header) {
  const Rows luma = frame.plane(0);
  const Rows chroma = frame.plane(1);
  const auto& [width, height, subsampling, colourSpace] = header;
  const int paddedWidth = tjPlaneWidth(0, width, subsampling);
  const int paddedHeight = tjPlaneHeight(0, height, subsampling);
  if (paddedWidth < width || paddedHeight < height) return false;
  const bool fits = paddedWidth <= luma.stride && paddedHeight <= luma.height;
  const Rows decoded = fits ? luma : scratchPlane(planes_[0], paddedWidth, paddedHeight);
  const bool isGrey = subsampling == TJSAMP_GRAY;
  Rows blue, red;
  if (!isGrey) {
    const int chromaWidth = tjPlaneWidth(1, width, subsampling);
    const int chromaHeight = tjPlaneHeight(1, height, subsampling);
    if (chromaWidth < 1 || chromaHeight < 1) return false;
    blue = scratchPlane(planes_[1], chromaWidth, chromaHeight);
    red = scratchPlane(planes_[2], chromaWidth, chromaHeight);
  }
  std::array<unsigned char*, 3> planes{decoded.first, blue.first, red.first};
  std::array<int, 3> strides{decoded.stride, blue.stride, red.stride};
  const int result = tjDecompressToYUVPlanes(decoder, bytesOf(file), file.size(), planes.data(), width,
                                             strides.data(), height, TJFLAG_LIMITSCANS);
  if (!succeeded(result, decoder, file)) return false;
  if (!fits) {
    libyuv::CopyPlane(decoded.first, decoded.stride, luma.first, luma.stride, luma.width, luma.height);
  }
  lumaToVideoRange(luma);
  if (isGrey) {
    libyuv::SetPlane(chroma.first, chroma.stride, 2 * chroma.width, chroma.height, 128);
  } else {
    interleave(blue, red, subsampling, chroma, width);
  }
  return true;
}

}  // namespace QelUtilVideo
