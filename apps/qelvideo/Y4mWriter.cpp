#include "Y4mWriter.h"

#include <cstring>
#include <string_view>

#include "Failure.h"
#include "PixelBufferLock.h"

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

constexpr std::string_view frameLine = "FRAME\n";

std::byte* append(std::byte* target, std::string_view text) {
  std::memcpy(target, text.data(), text.size());
  return target + text.size();
}

std::byte* appendLuma(std::byte* target, const PixelPlane& plane) {
  for (std::size_t y = 0; y < plane.height; ++y, target += plane.width) {
    std::memcpy(target, plane.baseAddress + y * plane.bytesPerRow, plane.width);
  }
  return target;
}

std::byte* appendChroma(std::byte* target, const PixelPlane& plane, std::size_t component) {
  for (std::size_t y = 0; y < plane.height; ++y, target += plane.width) {
    const std::byte* const row = plane.baseAddress + y * plane.bytesPerRow + component;
    for (std::size_t x = 0; x < plane.width; ++x) target[x] = row[2 * x];
  }
  return target;
}

}  // namespace

Y4mWriter::Y4mWriter(ByteOutput& output, Y4mHeader header) : output_(output), header_(header) {
  const std::string line = header_.text();
  frameStart_ = line.size();
  piece_.resize(line.size() + frameLine.size() + header_.frameSize());
  append(append(piece_.data(), line), frameLine);
}

ByteOutput::Outcome Y4mWriter::write(CVPixelBuffer& frame) {
  if (CVPixelBufferGetPlaneCount(frame) != 2 || frame.width() != header_.width ||
      frame.height() != header_.height) {
    throw Failure("a frame of " + std::to_string(frame.width()) + "x" + std::to_string(frame.height()) +
                  " (" + pixelFormatName(frame.format()) + ") does not go into a film of " +
                  std::to_string(header_.width) + "x" + std::to_string(header_.height));
  }
  const PixelBufferLock lock(frame, kCVPixelBufferLock_ReadOnly);
  const PixelPlane& luma = frame.planes()[0];
  const PixelPlane& chroma = frame.planes()[1];
  std::byte* target = piece_.data() + frameStart_ + frameLine.size();
  target = appendLuma(target, luma);
  target = appendChroma(target, chroma, 0);
  appendChroma(target, chroma, 1);
  hasFrame_ = true;
  return send();
}

ByteOutput::Outcome Y4mWriter::repeat() { return hasFrame_ ? send() : ByteOutput::Outcome::written; }

ByteOutput::Outcome Y4mWriter::send() {
  const std::span<const std::byte> piece(piece_);
  const ByteOutput::Outcome outcome = output_.write(headerSent_ ? piece.subspan(frameStart_) : piece);
  headerSent_ = headerSent_ || outcome == ByteOutput::Outcome::written;
  return outcome;
}

}  // namespace qelvideo
