#include <QelUtilVideo/platform/NSWindowDelegate.h>

namespace QelUtilVideo {

NSWindowDelegate::~NSWindowDelegate() = default;

bool NSWindowDelegate::windowShouldClose(NSWindow&) { return true; }

void NSWindowDelegate::windowWillClose(NSWindow&) {}

void NSWindowDelegate::windowDidResize(NSWindow&) {}

void NSWindowDelegate::windowDidChangeScreen(NSWindow&) {}

void NSWindowDelegate::windowKeyDown(NSWindow&, const NSEvent&) {}

}  // namespace QelUtilVideo
