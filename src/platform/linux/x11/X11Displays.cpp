#include "platform/linux/x11/X11Displays.h"

#include "platform/linux/x11/DrawableImage.h"

#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::uint32_t kUnknownVendor = 0x756e6b6e;

Dictionary infoOf(const EdidBlock& edid) {
  Dictionary info{{"DisplayVendorID", std::uint32_t{edid.manufacturer}},
                  {"DisplayProductID", std::uint32_t{edid.productCode}},
                  {"DisplaySerialNumber", edid.serialNumber}};
  Dictionary names;
  if (!edid.productName.empty()) names.set("en_US", edid.productName);
  info.set("DisplayProductName", std::move(names));
  return info;
}

}  // namespace

X11Displays::X11Displays(std::shared_ptr<X11Connection> connection, EventLoop& loop,
                         NotificationCenter& center, TroubleHandler trouble)
    : connection_(std::move(connection)) {
  if (!connection_) return;
  if (connection_->isXWayland()) {
    connection_ = nullptr;
    if (trouble) trouble("Displays cannot be captured under XWayland: its root window stays black");
    return;
  }
  pool_ = std::make_unique<ShmPool>(connection_);
  watch_ = MonitorWatch::make(
      connection_, loop,
      [&center] { center.postNotificationName(NSApplicationDidChangeScreenParametersNotification); },
      std::move(trouble));
}

X11Displays::~X11Displays() {
  if (watch_) watch_->stop();
}

std::vector<std::shared_ptr<NSScreen>> X11Displays::screens() {
  if (!watch_) return {};
  return watch_->current()->screens;
}

CGRect X11Displays::CGDisplayBounds(CGDirectDisplayID display) {
  const std::optional<Monitor> monitor = find(display);
  return monitor ? monitor->bounds() : CGRectZero;
}

std::uint32_t X11Displays::CGDisplayVendorNumber(CGDirectDisplayID display) {
  const std::optional<Monitor> monitor = find(display);
  return monitor && monitor->edid ? monitor->edid->manufacturer : kUnknownVendor;
}

std::uint32_t X11Displays::CGDisplayModelNumber(CGDirectDisplayID display) {
  const std::optional<Monitor> monitor = find(display);
  return monitor && monitor->edid ? monitor->edid->productCode : 0;
}

std::uint32_t X11Displays::CGDisplaySerialNumber(CGDirectDisplayID display) {
  const std::optional<Monitor> monitor = find(display);
  return monitor && monitor->edid ? monitor->edid->serialNumber : 0;
}

std::optional<std::vector<std::optional<Dictionary>>> X11Displays::displayInfoDictionaries() {
  if (!watch_ || !connection_->isAlive()) return std::nullopt;
  std::vector<std::optional<Dictionary>> services;
  for (const Monitor& monitor : watch_->current()->monitors) {
    if (monitor.edid) services.push_back(infoOf(*monitor.edid));
  }
  return services;
}

std::shared_ptr<CGImage> X11Displays::CGDisplayCreateImage(CGDirectDisplayID display) {
  // The arrangement may change between looking it up and asking for the pixels; what the server then
  // refuses is asked for once more where the display is now.
  constexpr int kAttempts = 2;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::optional<Monitor> monitor = find(display);
    if (!monitor) return nullptr;
    const DrawableRect rect{monitor->x, monitor->y, monitor->width, monitor->height};
    if (auto image = copyDrawable(*connection_, *pool_, connection_->root(), rect)) return image;
  }
  return nullptr;
}

std::optional<Monitor> X11Displays::find(CGDirectDisplayID display) {
  if (!watch_) return std::nullopt;
  const auto arrangement = watch_->current();
  const Monitor* monitor = arrangement->find(display);
  return monitor ? std::optional(*monitor) : std::nullopt;
}

}  // namespace QelUtilVideo
