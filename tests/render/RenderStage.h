#pragma once

#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace QelUtilVideo {

/// A bi-planar buffer whose rows have this many bytes in both planes (0: as many as they need).
inline CVPixelBufferRef makeFrame(std::size_t width, std::size_t height, std::size_t bytesPerRow = 0) {
  if (bytesPerRow == 0) bytesPerRow = (width + 1) / 2 * 2;
  const std::size_t chromaHeight = (height + 1) / 2;
  auto bytes = std::make_shared<std::vector<std::byte>>(bytesPerRow * (height + chromaHeight));
  std::vector<PixelPlane> planes{
      {bytes->data(), width, height, bytesPerRow},
      {bytes->data() + bytesPerRow * height, (width + 1) / 2, chromaHeight, bytesPerRow}};
  CVPixelBufferRef buffer;
  EXPECT_EQ(CVPixelBufferCreateWithPlanarBytes(
                width, height, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, std::move(planes), [bytes] {},
                buffer),
            0);
  return buffer;
}

/// A view in an off-screen window of 640 × 360 on the scripted machine, with a buffer to show.
struct RenderStage : testing::Test {
  ScopedMachine machine;
  LogCapture log;
  std::shared_ptr<NSWindow> window = NSWindow::makeOffscreen({640, 360});
  std::shared_ptr<RenderView> view = RenderView::make(window->contentView()->bounds());
  std::shared_ptr<QelKit::QelVideoImageBuffer> buffer = std::make_shared<QelKit::QelVideoImageBuffer>();

  RenderStage() { window->contentView()->addSubview(view); }
  ~RenderStage() override { EXPECT_THAT(machine->openGL().violations(), testing::IsEmpty()); }

  RecordingGL& gl() { return machine->openGL().gl; }
  /// How many of this number of refreshes draw.
  std::size_t draws(int refreshes) {
    const std::size_t before = gl().count("glClear(");
    for (int refresh = 0; refresh < refreshes; ++refresh) machine->openGL().refresh();
    return gl().count("glClear(") - before;
  }
  /// Shows the buffer and lets the view come to rest.
  void showAndSettle() {
    view->setImageBuffer(buffer);
    draws(5);
    machine->settle();
    gl().clear();
  }
  /// The record since it was last cleared.
  std::vector<std::string> callsOfOneRefresh() {
    gl().clear();
    machine->openGL().refresh();
    return gl().calls();
  }
};

}  // namespace QelUtilVideo
