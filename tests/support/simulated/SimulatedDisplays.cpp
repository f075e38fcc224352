#include "support/simulated/SimulatedDisplays.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace QelUtilVideo {
namespace {

class VectorBytes final : public ImageBytes {
 public:
  explicit VectorBytes(std::size_t size) : bytes_(size) {}
  [[nodiscard]] std::byte* data() override { return bytes_.data(); }
  [[nodiscard]] std::size_t size() const override { return bytes_.size(); }
  void shrink() { bytes_.pop_back(); }

 private:
  std::vector<std::byte> bytes_;
};

class LostBytes final : public CGDataProvider {
 public:
  [[nodiscard]] std::shared_ptr<ImageBytes> bytes() override { return nullptr; }
};

std::shared_ptr<VectorBytes> painted(const SimulatedDisplay& display, const CGImageLayout& layout) {
  auto bytes = std::make_shared<VectorBytes>(layout.bytesPerRow * layout.height);
  for (std::size_t y = 0; y < layout.height; ++y) {
    std::byte* pixel = bytes->data() + y * layout.bytesPerRow;
    for (std::size_t x = 0; x < layout.width; ++x) {
      std::uint32_t value = display.paint(x, y);
      for (std::size_t bits = 0; bits < layout.bitsPerPixel; bits += 8, value >>= 8) {
        *pixel++ = static_cast<std::byte>(value);
      }
    }
  }
  return bytes;
}

std::shared_ptr<NSScreen> makeScreen(const SimulatedDisplay& display, const CGRect& primary) {
  NSScreen::Properties properties;
  if (display.hasScreenNumber) properties.deviceDescription.set("NSScreenNumber", display.id);
  properties.localizedName = display.name;
  properties.frame = display.bounds;
  properties.frame.origin.y = CGRectGetMaxY(primary) - CGRectGetMaxY(display.bounds);
  properties.backingScaleFactor = display.scale;
  properties.maximumFramesPerSecond = display.maximumFramesPerSecond;
  return std::make_shared<NSScreen>(std::move(properties));
}

}  // namespace

Dictionary SimulatedDisplay::info(const Dictionary& productNames) const {
  return {{"DisplayVendorID", vendor},
          {"DisplayProductID", model},
          {"DisplaySerialNumber", serial},
          {"DisplayProductName", productNames}};
}

void SimulatedDisplays::set(std::vector<SimulatedDisplay> displays) {
  std::vector<std::shared_ptr<NSScreen>> screens;
  for (const auto& display : displays) screens.push_back(makeScreen(display, displays.front().bounds));
  state_.with([&](State& state) {
    std::swap(state.displays, displays);
    std::swap(state.screens, screens);
  });
}

void SimulatedDisplays::change(CGDirectDisplayID id, const std::function<void(SimulatedDisplay&)>& change) {
  state_.with([&](State& state) {
    for (auto& display : state.displays) {
      if (display.id == id) change(display);
    }
  });
}

void SimulatedDisplays::setServices(std::optional<std::vector<std::optional<Dictionary>>> services) {
  state_.with([&](State& state) { state.services = std::move(services); });
}

void SimulatedDisplays::notify() {
  center_.postNotificationName(NSApplicationDidChangeScreenParametersNotification);
}

void SimulatedDisplays::setCaptureHook(std::function<void(CGDirectDisplayID)> hook) {
  state_.with([&](State& state) { std::swap(state.captureHook, hook); });
}

int SimulatedDisplays::imagesMade() const {
  return state_.with([](const State& state) { return state.imagesMade; });
}

std::shared_ptr<ImageBytes> SimulatedDisplays::lastImageBytes() const {
  return state_.with([](const State& state) { return state.lastImageBytes.lock(); });
}

std::vector<std::shared_ptr<NSScreen>> SimulatedDisplays::screens() {
  return state_.with([](const State& state) { return state.screens; });
}

CGRect SimulatedDisplays::CGDisplayBounds(CGDirectDisplayID display) {
  const auto found = find(display);
  return found ? found->bounds : CGRectZero;
}

std::uint32_t SimulatedDisplays::CGDisplayVendorNumber(CGDirectDisplayID display) {
  return find(display).value_or(SimulatedDisplay{}).vendor;
}
std::uint32_t SimulatedDisplays::CGDisplayModelNumber(CGDirectDisplayID display) {
  return find(display).value_or(SimulatedDisplay{}).model;
}
std::uint32_t SimulatedDisplays::CGDisplaySerialNumber(CGDirectDisplayID display) {
  return find(display).value_or(SimulatedDisplay{}).serial;
}

std::optional<std::vector<std::optional<Dictionary>>> SimulatedDisplays::displayInfoDictionaries() {
  return state_.with([](const State& state) { return state.services; });
}

std::shared_ptr<CGImage> SimulatedDisplays::CGDisplayCreateImage(CGDirectDisplayID id) {
  if (const auto hook = state_.with([](const State& state) { return state.captureHook; })) hook(id);
  const auto display = find(id);
  if (!display || display->fault == DisplayFault::noImage) return nullptr;

  CGImageLayout layout = display->layout;
  layout.width = static_cast<std::size_t>(std::lround(display->bounds.size.width * display->scale));
  layout.height = static_cast<std::size_t>(std::lround(display->bounds.size.height * display->scale));
  layout.bytesPerRow = layout.width * layout.bitsPerPixel / 8 + display->paddingPerRow;
  if (display->fault == DisplayFault::noBytes) {
    return std::make_shared<CGImage>(layout, std::shared_ptr<CGDataProvider>());
  }
  if (display->fault == DisplayFault::lostBytes) {
    return std::make_shared<CGImage>(layout, std::make_shared<LostBytes>());
  }
  const auto bytes = painted(*display, layout);
  if (display->fault == DisplayFault::shortBytes) bytes->shrink();
  state_.with([&](State& state) {
    state.imagesMade += 1;
    state.lastImageBytes = bytes;
  });
  return std::make_shared<CGImage>(layout, std::shared_ptr<ImageBytes>(bytes));
}

std::optional<SimulatedDisplay> SimulatedDisplays::find(CGDirectDisplayID id) const {
  return state_.with([&](const State& state) -> std::optional<SimulatedDisplay> {
    const auto found = std::find_if(state.displays.begin(), state.displays.end(),
                                    [&](const auto& display) { return display.id == id; });
    return found == state.displays.end() ? std::nullopt : std::optional(*found);
  });
}

}  // namespace QelUtilVideo
