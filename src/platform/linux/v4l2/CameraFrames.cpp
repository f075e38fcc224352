#include "platform/linux/v4l2/CameraFrames.h"

#include <array>
#include <utility>
#include <vector>

namespace QelUtilVideo {

namespace {

/// With fewer a camera may find none when its next picture is ready.
constexpr std::uint32_t kLeastWaiting = 2;

bool isWhole(const CameraPlane& plane, const PixelPlane& wanted, std::size_t bytesPerPixel) {
  const std::size_t row = wanted.width * bytesPerPixel;
  return wanted.height > 0 && plane.bytesPerRow >= row &&
         plane.size >= plane.bytesPerRow * (wanted.height - 1) + row;
}

}  // namespace

CameraFrames::CameraFrames(const StreamFormat& format, std::shared_ptr<CameraBuffers> buffers,
                           MakeCameraFrame convert)
    : format_(format), buffers_(std::move(buffers)), convert_(std::move(convert)) {}

CVPixelBufferRef CameraFrames::make(const CameraBuffers::Filled& buffer) {
  const CameraPicture picture = format_.picture(buffer);
  CVPixelBufferRef frame = buffer.isDamaged ? nullptr : lend(buffer, picture);
  if (frame) return frame;
  if (!buffer.isDamaged) frame = convert_(picture);
  buffers_->giveBack(buffer.index);
  return frame;
}

CVPixelBufferRef CameraFrames::lend(const CameraBuffers::Filled& buffer, const CameraPicture& picture) const {
  if (picture.pixels != CameraPixels::nv12 || picture.isFullRange) return nullptr;
  if (buffers_->waiting() < kLeastWaiting) return nullptr;
  std::vector<PixelPlane> planes{{nullptr, picture.width, picture.height, 0},
                                 {nullptr, (picture.width + 1) / 2, (picture.height + 1) / 2, 0}};
  std::array<std::shared_ptr<MappedBuffer>, 2> memory;
  for (std::size_t i = 0; i < planes.size(); ++i) {
    if (!isWhole(picture.planes[i], planes[i], i + 1)) return nullptr;
    memory[i] = buffer.pieces[format_.format.memoryCount > 1 ? i : 0].memory;
    planes[i].baseAddress = memory[i]->bytes() + (picture.planes[i].bytes - memory[i]->bytes());
    planes[i].bytesPerRow = picture.planes[i].bytesPerRow;
  }
  CVPixelBufferRef frame;
  const CVReturn result = CVPixelBufferCreateWithPlanarBytes(
      picture.width, picture.height, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, std::move(planes),
      [memory, stream = std::weak_ptr(buffers_), index = buffer.index]() mutable {
        if (const auto buffers = stream.lock()) buffers->giveBack(index);
        memory = {};
      },
      frame);
  return result == kCVReturnSuccess ? frame : nullptr;
}

}  // namespace QelUtilVideo
