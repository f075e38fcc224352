// A film from a file or a pipe.

#include "Cancellation.h"
#include "Failure.h"
#include "Y4mReader.h"
#include "fuzz/Require.h"

#include <sys/mman.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace qelvideo;
using qelfuzz::require;

/// Bytes as a file to read from the start.
FileDescriptor fileOf(const std::uint8_t* data, std::size_t size) {
  FileDescriptor file(::memfd_create("film", MFD_CLOEXEC));
  require(::write(file.get(), data, size) == static_cast<ssize_t>(size), "the input can be written");
  require(::lseek(file.get(), 0, SEEK_SET) == 0, "the input can be read");
  return file;
}

void checkHeader(const Y4mHeader& header) {
  require(header.width >= 1 && header.width <= Y4mHeader::largestSide, "the width is possible");
  require(header.height >= 1 && header.height <= Y4mHeader::largestSide, "the height is possible");
  require(header.frameDuration() > 0, "frames last");
  const std::string text = header.text();
  require(Y4mHeader::parse(std::string_view(text).substr(0, text.size() - 1)) == header,
          "a header that is written reads the same");
}

void checkFrame(const QelUtilVideo::CVPixelBufferRef& frame, const Y4mHeader& header) {
  const auto& planes = frame->planes();
  require(planes.size() == 2, "a frame has two planes");
  require(planes[0].width == header.width && planes[0].height == header.height, "luma has the film's size");
  require(planes[1].width == header.chromaWidth() && planes[1].height == header.chromaHeight(),
          "chroma has half of it");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto cancellation = std::make_shared<Cancellation>();
  std::size_t frames = 0;
  std::optional<Y4mHeader> header;
  try {
    Y4mReader reader(ByteInput(fileOf(data, size), "film", cancellation));
    header = reader.header();
    checkHeader(*header);
    // Large frames cannot be whole in inputs as short as these, but take long to make.
    constexpr std::size_t largest = 1 << 16;
    while (header->frameSize() <= largest) {
      const auto frame = reader.next();
      if (!frame) break;
      checkFrame(frame, *header);
      ++frames;
    }
  } catch (const Failure& failure) {
    require(std::string_view(failure.what()).find("film") != std::string_view::npos,
            "a failure names its film");
  }
  require(frames == 0 || frames * header->frameSize() <= size, "frames come from bytes of their own");
  return 0;
}
