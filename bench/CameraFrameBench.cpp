// What frames of a camera's pictures cost, one thread:
//
//   build/bench/bin/camera_frame_bench
//
// `packed1080p` and `biPlanar1080p` against `copy1080p`, which copies as many bytes as a frame has;
// `jpeg720p` against `decode720p`, the decoder's own work for the same file; `videoRange720p`, part of the
// former, against `videoRangeByTable720p`.

#include "platform/linux/media/CameraFrameMaker.h"
#include "platform/linux/media/CodeRange.h"

#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace {

using namespace QelUtilVideo;

using Bytes = std::vector<std::uint8_t>;

/// Bytes that look like a picture with some noise.
Bytes pictureOf(std::size_t width, std::size_t height) {
  Bytes bytes(width * height);
  std::uint32_t noise = 1;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    noise = noise * 1664525 + 1013904223;
    bytes[i] = static_cast<std::uint8_t>(40 + i % width / 16 + i / width / 16 + (noise >> 29));
  }
  return bytes;
}

CameraPlane planeOf(const Bytes& bytes, std::size_t bytesPerRow) {
  return {reinterpret_cast<const std::byte*>(bytes.data()), bytes.size(), bytesPerRow};
}

void makeFrames(benchmark::State& state, const CameraPicture& picture) {
  CameraFrameMaker maker;
  for (auto _ : state) {
    const CVPixelBufferRef frame = maker.make(picture);
    if (!frame) return state.SkipWithError("no frame");
    benchmark::DoNotOptimize(frame->planes().front().baseAddress);
  }
}

void packed1080p(benchmark::State& state) {
  const Bytes bytes = pictureOf(2 * 1920, 1080);
  makeFrames(state, {CameraPixels::yuyv, 1920, 1080, false, {planeOf(bytes, 2 * 1920)}});
}

void biPlanar1080p(benchmark::State& state) {
  const Bytes luma = pictureOf(1920, 1080), chroma = pictureOf(1920, 540);
  makeFrames(
      state,
      {CameraPixels::nv12, 1920, 1080, state.range(0) != 0, {planeOf(luma, 1920), planeOf(chroma, 1920)}});
}

void copy1080p(benchmark::State& state) {
  const Bytes from = pictureOf(1920, 1620);
  Bytes to(from.size());
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
}

/// A picture of 4:2:2, as most cameras compress them.
Bytes makeJpeg720p() {
  const Bytes luma = pictureOf(1280, 720), blue = pictureOf(640, 720), red = pictureOf(640, 720);
  const std::array<const unsigned char*, 3> planes{luma.data(), blue.data(), red.data()};
  const std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), tjDestroy);
  unsigned char* file = nullptr;
  unsigned long size = 0;
  if (tjCompressFromYUVPlanes(encoder.get(), const_cast<const unsigned char**>(planes.data()), 1280, nullptr,
                              720, TJSAMP_422, &file, &size, 80, 0) != 0) {
    return {};
  }
  const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owned(file, tjFree);
  return Bytes(file, file + size);
}

void jpeg720p(benchmark::State& state) {
  const Bytes file = makeJpeg720p();
  makeFrames(state, {CameraPixels::motionJPEG, 1280, 720, true, {planeOf(file, 0)}});
}

void decode720p(benchmark::State& state) {
  const Bytes file = makeJpeg720p();
  Bytes luma(1280 * 720), blue(640 * 720), red(640 * 720);
  std::array<unsigned char*, 3> planes{luma.data(), blue.data(), red.data()};
  for (auto _ : state) {
    const std::unique_ptr<void, int (*)(tjhandle)> decoder(tjInitDecompress(), tjDestroy);
    tjDecompressToYUVPlanes(decoder.get(), file.data(), file.size(), planes.data(), 1280, nullptr, 720, 0);
    benchmark::ClobberMemory();
  }
}

void videoRange720p(benchmark::State& state) {
  Bytes luma = pictureOf(1280, 720);
  for (auto _ : state) {
    lumaToVideoRange({luma.data(), 1280, 1280, 720});
    benchmark::ClobberMemory();
  }
}

void videoRangeByTable720p(benchmark::State& state) {
  Bytes luma = pictureOf(1280, 720);
  std::array<std::uint8_t, 256> table{};
  for (std::size_t i = 0; i < table.size(); ++i) table[i] = videoLuma(static_cast<std::uint8_t>(i));
  benchmark::DoNotOptimize(table.data());
  for (auto _ : state) {
    for (std::uint8_t& code : luma) code = table[code];
    benchmark::ClobberMemory();
  }
}

BENCHMARK(packed1080p)->Unit(benchmark::kMicrosecond);
BENCHMARK(biPlanar1080p)->ArgName("fullRange")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(copy1080p)->Unit(benchmark::kMicrosecond);
BENCHMARK(jpeg720p)->Unit(benchmark::kMicrosecond);
BENCHMARK(decode720p)->Unit(benchmark::kMicrosecond);
BENCHMARK(videoRange720p)->Unit(benchmark::kMicrosecond);
BENCHMARK(videoRangeByTable720p)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
