// A host of an installed copy: shows a grey frame off screen, and says what it looks like.

#include <QelUtilVideo/QelUtilVideo.h>

#include <poll.h>

#include <cstdio>
#include <cstring>

using namespace QelUtilVideo;

int main() {
  CVPixelBufferRef frame;
  if (CVPixelBufferCreate(16, 16, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, frame) != kCVReturnSuccess)
    return 1;
  for (const PixelPlane& plane : frame->planes())
    std::memset(plane.baseAddress, 126, plane.bytesPerRow * plane.height);
  const auto window = NSWindow::makeOffscreen({16, 16});
  const auto view = RenderView::make(window->contentView()->bounds());
  const auto buffer = std::make_shared<QelKit::QelVideoImageBuffer>();
  view->setImageBuffer(buffer);
  window->contentView()->addSubview(view);
  buffer->setImage(frame, 1);
  for (int wait = 0; wait < 500; ++wait) {
    pollfd entry{MainLoop::main().fileDescriptor(), POLLIN, 0};
    poll(&entry, 1, 20);
    MainLoop::main().dispatchPending();
    const auto picture = window->image();
    const int green = picture ? std::to_integer<int>(picture->dataProvider()->bytes()->data()[1]) : 0;
    if (green > 120 && green < 136) {
      std::puts("grey");
      return 0;
    }
  }
  return 1;
}
