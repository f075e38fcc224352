#include "Y4mReader.h"

#include "Failure.h"
#include "PixelBufferLock.h"

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

Y4mHeader readHeader(ByteInput& input) {
  try {
    const auto line = input.readLine(Y4mHeader::longestLine);
    if (!line) throw Failure("it is empty");
    const Y4mHeader header = Y4mHeader::parse(line->text);
    if (!line->terminated) throw Failure("its header does not end within the first 4096 bytes");
    return header;
  } catch (const Failure& failure) {
    throw Failure("cannot use " + input.name() + ": " + failure.what());
  }
}

}  // namespace

Y4mReader::Y4mReader(ByteInput input)
    : input_(std::move(input)),
      header_(readHeader(input_)),
      pool_(CVPixelBufferPool::make(header_.width, header_.height,
                                    header_.fullRange ? kCVPixelFormatType_420YpCbCr8BiPlanarFullRange
                                                      : kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange)),
      row_(header_.width) {}

CVPixelBufferRef Y4mReader::next() {
  if (!readFrameLine()) return nullptr;
  const CVPixelBufferRef frame = pool_ ? pool_->makePixelBuffer() : nullptr;
  if (!frame) fail("there is no memory for it");
  frameBytes_ = 0;
  {
    const PixelBufferLock lock(*frame);
    const PixelPlane& luma = frame->planes()[0];
    const PixelPlane& chroma = frame->planes()[1];
    readPlane(luma.baseAddress, header_.width, header_.height, luma.bytesPerRow, 1);
    for (std::size_t component = 0; component < 2; ++component) {
      readPlane(chroma.baseAddress + component, header_.chromaWidth(), header_.chromaHeight(),
                chroma.bytesPerRow, 2);
    }
  }
  ++frames_;
  CVPixelBufferRef converted = toVideoRange_.convert(frame);
  if (!converted) fail("there is no memory for it");
  return converted;
}

bool Y4mReader::readFrameLine() {
  const auto line = input_.readLine(Y4mHeader::longestLine);
  if (!line) return false;
  if (line->text.substr(0, 5) != "FRAME" || (line->text.size() > 5 && line->text[5] != ' ')) {
    fail("it does not begin with FRAME");
  }
  if (!line->terminated) fail("it is cut short in its first line");
  return true;
}

/// Rows of single bytes, to every `step`-th byte of the rows of a plane.
void Y4mReader::readPlane(std::byte* first, std::size_t width, std::size_t height, std::size_t bytesPerRow,
                          std::size_t step) {
  for (std::size_t y = 0; y < height; ++y) {
    std::byte* const target = first + y * bytesPerRow;
    const std::span<std::byte> row(step == 1 ? target : row_.data(), width);
    const std::size_t count = input_.read(row);
    frameBytes_ += count;
    if (count < width) {
      fail("it is cut short: " + std::to_string(frameBytes_) + " of " + std::to_string(header_.frameSize()) +
           " bytes are there");
    }
    if (step == 1) continue;
    for (std::size_t x = 0; x < width; ++x) target[x * step] = row[x];
  }
}

void Y4mReader::fail(const std::string& what) const {
  std::string text = "cannot use frame " + std::to_string(frames_ + 1) + " of " + input_.name() + ": " + what;
  if (frames_ > 0) text += "; the frames before it are good";
  throw Failure(text);
}

}  // namespace qelvideo
