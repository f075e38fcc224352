#include "ViewWindow.h"

#include <QelUtilVideo/platform/NSWindow.h>

#include <charconv>
#include <cstdio>
#include <utility>

#include "Failure.h"
#include "HostLoop.h"
#include "Terminal.h"

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

std::shared_ptr<NSWindow> open(const ViewPlace& place, CGSize size) {
  if (place.offscreen) return NSWindow::makeOffscreen(size);
  if (place.inside) {
    auto window = NSWindow::makeInForeignWindow(*place.inside);
    if (window) return window;
    char number[16];
    std::snprintf(number, sizeof number, "0x%x", *place.inside);
    throw Failure(std::string("cannot show anything in the window ") + number +
                  ": the display has none of that ID; xwininfo tells a window's ID");
  }
  auto window = NSWindow::make(size, place.title);
  if (window) return window;
  throw Failure(
      "cannot open a window: there is no X server that shows windows of 24 bits; is DISPLAY set? `qelvideo "
      "doctor` tells more, and --offscreen WxH needs none");
}

}  // namespace

class ViewWindow::Delegate final : public NSWindowDelegate {
 public:
  explicit Delegate(Terminal& terminal) : terminal_(terminal) {}

  bool windowShouldClose(NSWindow&) override {
    isClosed = true;
    return true;
  }
  void windowWillClose(NSWindow&) override {
    HostLoop::wake();
    if (isClosed) return;
    isLost = true;
    terminal_.note("window: gone; it was destroyed, or its X server ended (q ends this program)");
  }
  void windowKeyDown(NSWindow&, const NSEvent& event) override {
    if (onKey) onKey(event);
    HostLoop::wake();
  }

  bool isClosed = false;
  bool isLost = false;
  KeyHandler onKey;

 private:
  Terminal& terminal_;
};

ViewWindow::ViewWindow(Terminal& terminal, const ViewPlace& place, CGSize size)
    : delegate_(std::make_shared<Delegate>(terminal)),
      window_(open(place, size)),
      offscreen_(place.offscreen) {
  window_->setDelegate(delegate_);
  window_->orderFront();
}

ViewWindow::~ViewWindow() {
  delegate_->isClosed = true;
  window_->close();
}

bool ViewWindow::isClosed() const { return delegate_->isClosed; }

bool ViewWindow::isLost() const { return delegate_->isLost; }

void ViewWindow::onKey(KeyHandler handler) { delegate_->onKey = std::move(handler); }

std::uint32_t parseWindowNumber(const std::string& text) {
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const char* begin = text.data() + (isHexadecimal ? 2 : 0);
  const char* end = text.data() + text.size();
  std::uint32_t number = 0;
  const auto result = std::from_chars(begin, end, number, isHexadecimal ? 16 : 10);
  if (begin != end && result.ec == std::errc{} && result.ptr == end && number != 0) return number;
  throw UsageFailure("'" + text + "' is no window ID; write it as 0x1a00007 or 27262983");
}

}  // namespace qelvideo
