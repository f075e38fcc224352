#include "capture/windowlist/Screen.h"

#include "capture/device/DisplayNaming.h"
#include "capture/windowlist/Error.h"
#include "capture/windowlist/PixelBufferMaking.h"
#include "log/Log.h"
#include "platform/Displays.h"
#include "platform/Platform.h"

#include <utility>

namespace QelUtilVideo::windowlist {

std::shared_ptr<Screen> Screen::make(Platform& platform, std::shared_ptr<NSScreen> screen) {
  const auto displayID = screen ? device::screenDisplayID(*screen) : std::nullopt;
  if (!displayID) return nullptr;
  auto productName = device::displayProductName(platform.displays(), *displayID);
  return std::make_shared<Screen>(Key{}, platform, std::move(screen), *displayID, std::move(productName));
}

Screen::Screen(Key, Platform& platform, std::shared_ptr<NSScreen> screen, CGDirectDisplayID displayID,
               std::string displayProdutName)
    : Target(platform, "[CapturableTarget:Screen:" + std::to_string(nextLogID()) + "]"),
      screen_(std::move(screen)),
      displayID_(displayID),
      displayProdutName_(std::move(displayProdutName)),
      uniqueID_(device::windowListScreenUniqueID(displayID)) {
  log(LogLevel::info,
      logName() + " init (displayID=" + std::to_string(displayID_) + ", name=" + Screen::name() + ")");
}

Screen::~Screen() {
  tearDownSession();
  log(LogLevel::info, logName() + " deinit");
}

std::string Screen::name() const {
  return device::displayName(platform().systemVersion(), *screen(), displayProdutName_);
}

bool Screen::isAvailable() const { return platform().displays().CGDisplayCreateImage(displayID_) != nullptr; }

void Screen::setScreen(std::shared_ptr<NSScreen> screen) {
  if (!screen) return;
  screen_.with([&](std::shared_ptr<NSScreen>& held) { held.swap(screen); });
}

std::shared_ptr<NSImage> Screen::snapshotImage() const {
  auto image = platform().displays().CGDisplayCreateImage(displayID_);
  return image ? std::make_shared<NSImage>(std::move(image), CGSize{}) : nullptr;
}

Result<CVPixelBufferRef> Screen::capture() {
  auto image = platform().displays().CGDisplayCreateImage(displayID_);
  if (!image) return makeError(Error::failedToCapture);
  const CGRect rect = platform().displays().CGDisplayBounds(displayID_);
  auto pixelBuffer = makePixelBuffer(platform(), std::move(image), rect);
  if (!pixelBuffer) return makeError(Error::failedToCapture);
  return pixelBuffer;
}

}  // namespace QelUtilVideo::windowlist
