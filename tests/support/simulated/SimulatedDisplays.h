#pragma once

#include "platform/Displays.h"
#include "platform/Synchronised.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace QelUtilVideo {

enum class DisplayFault : std::uint8_t {
  none,
  noImage,     ///< no image can be had
  noBytes,     ///< the image has no data provider
  lostBytes,   ///< the provider cannot give the bytes
  shortBytes,  ///< one byte less than the layout needs
};

struct SimulatedDisplay {
  CGDirectDisplayID id = 1;
  std::string name = "Simulated Display";
  CGRect bounds = CGRectMake(0, 0, 64, 48);  ///< global points, origin top-left
  double scale = 1;
  double refreshRate = 0;  ///< 0: it does not tell
  bool hasScreenNumber = true;

  std::uint32_t vendor = 0x756e6b6e;
  std::uint32_t model = 0;
  std::uint32_t serial = 0;

  /// The image. Its size follows bounds and scale; `paint` gives a pixel as 0xAARRGGBB, the first row at
  /// the top.
  std::function<std::uint32_t(std::size_t x, std::size_t y)> paint = [](std::size_t, std::size_t) {
    return 0xff000000U;
  };
  std::size_t paddingPerRow = 0;  ///< bytes
  DisplayFault fault = DisplayFault::none;

  /// The dictionary of an "IODisplayConnect" service for this display.
  [[nodiscard]] Dictionary info(const Dictionary& productNames) const {
    return {{"DisplayVendorID", vendor},
            {"DisplayProductID", model},
            {"DisplaySerialNumber", serial},
            {"DisplayProductName", productNames}};
  }
};

/// Displays as the test lists them, the primary one first.
class SimulatedDisplays final : public Displays {
 public:
  explicit SimulatedDisplays(NotificationCenter& center) : center_(center) {}

  /// Replaces the displays; every screen object is a new one. Tells nobody.
  void set(std::vector<SimulatedDisplay> displays) {
    std::vector<std::shared_ptr<NSScreen>> screens;
    for (const auto& display : displays) screens.push_back(makeScreen(display, displays.front().bounds));
    displays_.with([&](auto& current) { std::swap(current, displays); });
    screens_.with([&](auto& current) { std::swap(current, screens); });
  }
  /// Changes one display in place (a fault, a picture), keeping the screen objects.
  void change(CGDirectDisplayID id, const std::function<void(SimulatedDisplay&)>& change) {
    displays_.with([&](auto& displays) {
      for (auto& display : displays) {
        if (display.id == id) change(display);
      }
    });
  }
  /// The information services; absent: they cannot be asked.
  void setServices(std::optional<std::vector<std::optional<Dictionary>>> services) {
    services_.with([&](auto& current) { current = std::move(services); });
  }
  /// Posts NSApplicationDidChangeScreenParametersNotification on the calling thread.
  void notify() { center_.postNotificationName(NSApplicationDidChangeScreenParametersNotification); }
  /// The bytes of the image made last, as long as somebody holds them.
  [[nodiscard]] std::shared_ptr<ImageBytes> lastImageBytes() const { return lastImageBytes_.copy().lock(); }

  // Displays
  [[nodiscard]] std::vector<std::shared_ptr<NSScreen>> screens() override { return screens_.copy(); }
  [[nodiscard]] CGRect CGDisplayBounds(CGDirectDisplayID id) override {
    return find(id).value_or(SimulatedDisplay{.bounds = CGRectZero}).bounds;
  }
  [[nodiscard]] std::uint32_t CGDisplayVendorNumber(CGDirectDisplayID id) override {
    return find(id).value_or(SimulatedDisplay{}).vendor;
  }
  [[nodiscard]] std::uint32_t CGDisplayModelNumber(CGDirectDisplayID id) override {
    return find(id).value_or(SimulatedDisplay{}).model;
  }
  [[nodiscard]] std::uint32_t CGDisplaySerialNumber(CGDirectDisplayID id) override {
    return find(id).value_or(SimulatedDisplay{}).serial;
  }
  [[nodiscard]] std::optional<std::vector<std::optional<Dictionary>>> displayInfoDictionaries() override {
    return services_.copy();
  }
  [[nodiscard]] std::shared_ptr<CGImage> CGDisplayCreateImage(CGDirectDisplayID id) override {
    const auto display = find(id);
    if (!display || display->fault == DisplayFault::noImage) return nullptr;
    CGImageLayout layout;
    layout.width = static_cast<std::size_t>(std::lround(display->bounds.size.width * display->scale));
    layout.height = static_cast<std::size_t>(std::lround(display->bounds.size.height * display->scale));
    layout.bytesPerRow = layout.width * 4 + display->paddingPerRow;
    if (display->fault == DisplayFault::noBytes || display->fault == DisplayFault::lostBytes) {
      const bool lost = display->fault == DisplayFault::lostBytes;
      return std::make_shared<CGImage>(layout, lost ? std::make_shared<LostBytes>() : nullptr);
    }
    const std::shared_ptr<ImageBytes> bytes =
        makeHeapBytes(layout.bytesPerRow * layout.height - (display->fault == DisplayFault::shortBytes));
    if (display->fault == DisplayFault::none) paint(*display, layout, bytes->data());
    lastImageBytes_.with([&](auto& last) { last = bytes; });
    return std::make_shared<CGImage>(layout, bytes);
  }

 private:
  struct LostBytes final : CGDataProvider {
    [[nodiscard]] std::shared_ptr<ImageBytes> bytes() override { return nullptr; }
  };

  static std::shared_ptr<NSScreen> makeScreen(const SimulatedDisplay& display, const CGRect& primary) {
    NSScreen::Properties properties;
    if (display.hasScreenNumber) properties.deviceDescription.set("NSScreenNumber", display.id);
    properties.localizedName = display.name;
    properties.frame = display.bounds;
    properties.frame.origin.y = CGRectGetMaxY(primary) - CGRectGetMaxY(display.bounds);
    properties.backingScaleFactor = display.scale;
    properties.maximumFramesPerSecond = display.refreshRate;
    return std::make_shared<NSScreen>(std::move(properties));
  }
  static void paint(const SimulatedDisplay& display, const CGImageLayout& layout, std::byte* bytes) {
    for (std::size_t y = 0; y < layout.height; ++y) {
      for (std::size_t x = 0; x < layout.width; ++x) {
        const std::uint32_t pixel = display.paint(x, y);
        std::memcpy(bytes + y * layout.bytesPerRow + 4 * x, &pixel, sizeof pixel);
      }
    }
  }
  [[nodiscard]] std::optional<SimulatedDisplay> find(CGDirectDisplayID id) const {
    for (const auto& display : displays_.copy()) {
      if (display.id == id) return display;
    }
    return std::nullopt;
  }

  NotificationCenter& center_;
  Synchronised<std::vector<SimulatedDisplay>> displays_;
  Synchronised<std::vector<std::shared_ptr<NSScreen>>> screens_;
  Synchronised<std::optional<std::vector<std::optional<Dictionary>>>> services_{
      std::vector<std::optional<Dictionary>>()};
  Synchronised<std::weak_ptr<ImageBytes>> lastImageBytes_;
};

}  // namespace QelUtilVideo
