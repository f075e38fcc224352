#pragma once

#include "platform/PixelMemory.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// What is fixed about one plane of a known format before there are any bytes.
struct PixelPlaneShape {
  std::size_t width = 0;        ///< in pixels of the plane
  std::size_t height = 0;       ///< rows
  std::size_t minimumRow = 0;   ///< bytes that the pixels of one row take
  std::size_t rowMultiple = 1;  ///< bytes per row are a multiple of this
};

/// Whether the format is one of the packed ones; absent for an unknown format. Any thread.
[[nodiscard]] std::optional<bool> isPackedFormat(OSType format);

/// The planes of a picture in a known format, none for an unknown one. Any thread.
[[nodiscard]] std::vector<PixelPlaneShape> pixelPlaneShapes(std::size_t width, std::size_t height,
                                                            OSType format);

/// Success, or why no buffer can have this size and format.
[[nodiscard]] CVReturn checkPixelBufferSize(std::size_t width, std::size_t height, OSType format);

/// Where the planes of a picture lie in one piece of memory of `size` bytes: rows and planes aligned to
/// 64 bytes.
struct PixelMemoryLayout {
  std::vector<PixelPlane> planes;    ///< without base addresses
  std::vector<std::size_t> offsets;  ///< of each plane, in bytes
  std::size_t size = 0;

  PixelMemoryLayout() = default;
  PixelMemoryLayout(std::size_t width, std::size_t height, OSType format);
  /// Memory for one picture; null when there is none.
  [[nodiscard]] std::shared_ptr<PixelMemory> allocate() const;
  /// The planes of the picture that begins at `memory`.
  [[nodiscard]] std::vector<PixelPlane> placedAt(std::byte* memory) const;
};

/// A buffer over memory of this layout, which it keeps; `release` as in `CVPixelBufferCreateWithBytes`.
[[nodiscard]] CVReturn wrapPixelMemory(std::size_t width, std::size_t height, OSType format,
                                       const PixelMemoryLayout& layout, std::shared_ptr<PixelMemory> memory,
                                       CVPixelBuffer::ReleaseCallback release, CVPixelBufferRef& buffer);

}  // namespace QelUtilVideo
