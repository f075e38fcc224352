#include "support/WarmUp.h"

#include <QelUtilVideo/QelUtilVideo.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace QelUtilVideo;

namespace {

/// What the library's first view tells a logger.
std::vector<std::string> firstLines;

// The main queue and the system log keep what they have opened until the process ends.
const qeltest::WarmUp warmUp([] {
  const auto sink = [](const std::string& message, const char* file, std::uint64_t line) {
    EXPECT_NE(file, nullptr);
    EXPECT_GT(line, 0U);
    firstLines.push_back(message);
  };
  setupLogger(Logger(sink, sink, sink));
  static_cast<void>(RenderView::make(CGRectMake(0, 0, 10, 10)));
  setupLogger(std::nullopt);
  MainLoop::main().dispatchPending();
});

CVPixelBufferRef grey(std::size_t side, int luma) {
  CVPixelBufferRef buffer;
  EXPECT_EQ(CVPixelBufferCreate(side, side, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, buffer),
            kCVReturnSuccess);
  for (std::size_t plane = 0; plane < 2; ++plane) {
    const PixelPlane& target = buffer->planes()[plane];
    std::fill_n(target.baseAddress, target.bytesPerRow * target.height, std::byte(plane ? 128 : luma));
  }
  return buffer;
}

/// Gives the main queue its time from a foreign event loop until the condition holds.
bool pumpUntil(const std::function<bool()>& holds) {
  const double end = CACurrentMediaTime() + 20;
  while (!holds() && CACurrentMediaTime() < end) {
    pollfd entry{MainLoop::main().fileDescriptor(), POLLIN, 0};
    ::poll(&entry, 1, 20);
    MainLoop::main().dispatchPending();
  }
  return holds();
}

}  // namespace

TEST(Host, aForeignLoopThatPollsTheDescriptorRunsTheMainQueue) {
  std::atomic<int> ran = 0;
  bool onMainThread = false;
  std::thread([&] {
    MainLoop::main().async([&] { onMainThread = MainLoop::main().isMainThread(); });
  }).join();
  MainLoop::main().after(0.05, [&] { ++ran; });
  EXPECT_TRUE(pumpUntil([&] { return ran == 1; }));
  EXPECT_TRUE(onMainThread);
}

TEST(Host, theLoggerReceivesTheRevisionFirst) {
  ASSERT_GE(firstLines.size(), 2U);
  EXPECT_NE(firstLines.front().find(version()), std::string::npos) << firstLines.front();
  for (const std::string& line : firstLines) EXPECT_EQ(line.rfind("[QelUtilVideo] ", 0), 0U) << line;
}

TEST(Host, anOffscreenViewShowsItsFrameAndItsBackground) {
  const auto window = NSWindow::makeOffscreen({64, 48});
  const auto view = RenderView::make(window->contentView()->bounds());
  const auto frames = std::make_shared<QelKit::QelVideoImageBuffer>();
  std::vector<CGSize> sizes;
  static_cast<void>(view->addContentSizeObserver([&](CGSize size) { sizes.push_back(size); }));
  view->setFitInBounds(true);
  view->setBackgroundColor(NSColor::deviceRGB(1, 0, 0));
  view->setImageBuffer(frames);
  window->contentView()->addSubview(view);
  frames->setImage(grey(16, 126), 1);

  // Refreshes follow one another until one shows the frame.
  CGImageRef picture;
  const auto pixel = [&](std::size_t x, std::size_t y) {
    const std::byte* bytes =
        picture->dataProvider()->bytes()->data() + y * picture->layout().bytesPerRow + 4 * x;
    return std::vector<int>{std::to_integer<int>(bytes[2]), std::to_integer<int>(bytes[1]),
                            std::to_integer<int>(bytes[0])};
  };
  ASSERT_TRUE(pumpUntil([&] {
    picture = sizes.empty() ? nullptr : window->image();
    return picture && pixel(32, 24)[1] > 100;
  }));
  EXPECT_EQ(sizes.back(), (CGSize{16, 16}));
  for (const int component : pixel(32, 24)) EXPECT_NEAR(component, 255.0 * (126 - 16) / 219, 1);
  EXPECT_EQ(pixel(2, 24), (std::vector<int>{255, 0, 0}));
  window->close();
}

TEST(Host, picturesGoIntoPngFilesAndBadFoldersAreNamed) {
  const std::vector<std::byte> pixels(3 * 20, std::byte{0xff});
  const CGImageRef image = makeImage(3, 3, 20, pixels.data());
  ASSERT_TRUE(image);
  const std::string path = testing::TempDir() + "host_test_" + std::to_string(::getpid()) + ".png";
  EXPECT_FALSE(writePNG(*image, path));
  EXPECT_EQ(std::remove(path.c_str()), 0);
  const auto error = writePNG(*image, "/no such folder/picture.png");
  ASSERT_TRUE(error);
  EXPECT_NE(error->description().find("/no such folder/picture.png"), std::string::npos);
}
