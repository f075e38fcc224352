#include <QelKit/QelAppLog.h>
#include <QelKit/QelVideoImageBuffer.h>

#include <gtest/gtest.h>

#include <array>

namespace QelKit {
namespace {

using QelUtilVideo::CGImagePropertyOrientation;
using QelUtilVideo::CVPixelBufferRef;

TEST(QelAppLogTest, writesOneLinePerCall) {
  testing::internal::CaptureStderr();
  QelAppLog(1, 366, "careful");
  QelAppLog(9, 0, "odd");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "warning [366] careful\n9 [0] odd\n");
}

TEST(QelVideoImageBufferTest, handsOutOneFrameAsAWhole) {
  CVPixelBufferRef pixels;
  ASSERT_EQ(CVPixelBufferCreate(4, 2, QelUtilVideo::kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, pixels),
            QelUtilVideo::kCVReturnSuccess);
  QelVideoImageBuffer buffer;
  SynchronizedData data{};
  EXPECT_EQ(buffer.getSynchronizedData(data), nullptr);
  EXPECT_EQ(data.pixelBuffer, nullptr);

  buffer.setImage(pixels, 1.5, CGImagePropertyOrientation::left, 3, 4);
  EXPECT_EQ(buffer.getSynchronizedData(data), pixels);
  EXPECT_EQ(data.timestamp, 1.5);
  EXPECT_EQ(data.pixelBuffer, pixels.get());
  EXPECT_EQ(data.orientation, static_cast<std::uint32_t>(CGImagePropertyOrientation::left));
  EXPECT_EQ(data.deviceID, 3);
  EXPECT_EQ(data.deviceType, 4);
}

TEST(QelVideoImageBufferTest, theReplacedFrameIsReleasedWhileTheBufferIsFree) {
  QelVideoImageBuffer buffer;
  std::array<std::byte, 16> bytes{};
  double seen = 0;
  CVPixelBufferRef pixels;
  ASSERT_EQ(CVPixelBufferCreateWithBytes(
                2, 2, QelUtilVideo::kCVPixelFormatType_32BGRA, bytes.data(), 8,
                [&] { seen = buffer.timestamp(); }, pixels),
            QelUtilVideo::kCVReturnSuccess);
  buffer.setImage(std::move(pixels), 1);
  buffer.setImage(nullptr, 2);
  EXPECT_EQ(seen, 2);
}

}  // namespace
}  // namespace QelKit
