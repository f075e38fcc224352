#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <vector>

#include "ByteOutput.h"
#include "Y4mHeader.h"

namespace qelvideo {

/// Writes bi-planar frames as a YUV4MPEG2 film. The header goes out with the first frame, each frame
/// in one piece. One thread.
class Y4mWriter {
 public:
  /// The output outlives the writer.
  Y4mWriter(ByteOutput& output, Y4mHeader header);

  [[nodiscard]] const Y4mHeader& header() const { return header_; }
  /// Writes a bi-planar 4:2:0 frame of the header's size; any other throws `Failure`, as does an output
  /// that cannot be written to.
  [[nodiscard]] ByteOutput::Outcome write(QelUtilVideo::CVPixelBuffer& frame);
  /// Writes the last frame once more; without one it does nothing.
  [[nodiscard]] ByteOutput::Outcome repeat();

 private:
  [[nodiscard]] ByteOutput::Outcome send();

  ByteOutput& output_;
  Y4mHeader header_;
  /// The header, then the last frame with its own line.
  std::vector<std::byte> piece_;
  std::size_t frameStart_ = 0;
  bool headerSent_ = false;
  bool hasFrame_ = false;
};

}  // namespace qelvideo
