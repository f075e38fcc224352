#pragma once

#include <QelUtilVideo/platform/CVPixelBufferPool.h>
#include <QelUtilVideo/platform/PixelBufferConverter.h>

#include <cstdint>
#include <memory>

#include "ByteInput.h"
#include "Y4mHeader.h"

namespace qelvideo {

/// Reads a YUV4MPEG2 film frame by frame into pixel buffers that a view takes. One thread.
class Y4mReader {
 public:
  /// Reads the header. Throws `Failure`, which names the input and what is wrong with it.
  explicit Y4mReader(ByteInput input);

  [[nodiscard]] const Y4mHeader& header() const { return header_; }
  [[nodiscard]] const std::string& name() const { return input_.name(); }
  /// The next frame, bi-planar in video range; null at the end of the film. Throws `Failure` for a frame
  /// that is cut short or does not begin like one; the frames before stand.
  [[nodiscard]] QelUtilVideo::CVPixelBufferRef next();

 private:
  [[nodiscard]] bool readFrameLine();
  void readPlane(std::byte* first, std::size_t width, std::size_t height, std::size_t bytesPerRow,
                 std::size_t step);
  [[noreturn]] void fail(const std::string& what) const;

  ByteInput input_;
  Y4mHeader header_;
  std::shared_ptr<QelUtilVideo::CVPixelBufferPool> pool_;
  QelUtilVideo::PixelBufferConverter toVideoRange_;
  std::vector<std::byte> row_;
  std::uint64_t frames_ = 0;
  std::size_t frameBytes_ = 0;
};

}  // namespace qelvideo
