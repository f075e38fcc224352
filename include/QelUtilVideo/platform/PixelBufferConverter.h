#pragma once

#include <QelUtilVideo/platform/CVPixelBufferPool.h>
#include <QelUtilVideo/platform/NSError.h>

#include <optional>

namespace QelUtilVideo {

/// Turns pixel buffers of any known format into bi-planar YUV 4:2:0, which is what views draw and most
/// encoders take; displays and windows are captured as 32BGRA, devices in this format already. Conversion is
/// BT.601; alpha is ignored; packed YUV counts as video range. One converter serves one stream: it keeps a
/// pool for the size it saw last. Not synchronised; use it on one thread at a time.
///
///     PixelBufferConverter toNV12;
///     if (CVPixelBufferRef frame = toNV12.convert(captured)) show(frame);
class QEL_EXPORT PixelBufferConverter {
 public:
  /// `format`: kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange or …FullRange; any other counts as the
  /// first.
  explicit PixelBufferConverter(OSType format = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
  PixelBufferConverter(const PixelBufferConverter&) = delete;
  PixelBufferConverter& operator=(const PixelBufferConverter&) = delete;
  ~PixelBufferConverter();

  /// The picture in the converter's format: the source itself when it already has it, else a buffer
  /// from the converter's pool. Null when the source is null or there is no memory.
  [[nodiscard]] CVPixelBufferRef convert(const CVPixelBufferRef& source);

 private:
  OSType format_;
  std::shared_ptr<CVPixelBufferPool> pool_;
};

}  // namespace QelUtilVideo
