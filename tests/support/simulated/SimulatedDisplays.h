#pragma once

#include "platform/Displays.h"
#include "platform/Synchronised.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

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
  double maximumFramesPerSecond = 60;
  bool hasScreenNumber = true;

  std::uint32_t vendor = 0x756e6b6e;
  std::uint32_t model = 0;
  std::uint32_t serial = 0;

  /// The image. Its size follows bounds and scale; `paint` gives a pixel's bytes in memory, the first
  /// one lowest, first row at the top. A layout of other than 32 bits per pixel takes the lowest bytes.
  std::function<std::uint32_t(std::size_t x, std::size_t y)> paint = [](std::size_t, std::size_t) {
    return 0xff000000U;
  };
  std::size_t paddingPerRow = 0;  ///< bytes
  CGImageLayout layout = {};      ///< bits, colour space and bitmap information; the rest is computed
  DisplayFault fault = DisplayFault::none;

  /// The dictionary of an "IODisplayConnect" service for this display.
  [[nodiscard]] Dictionary info(const Dictionary& productNames) const;
};

/// Displays as the test lists them, the primary one first.
class SimulatedDisplays final : public Displays {
 public:
  explicit SimulatedDisplays(NotificationCenter& center) : center_(center) {}

  /// Replaces the displays; every screen object is a new one. Tells nobody.
  void set(std::vector<SimulatedDisplay> displays);
  /// Changes one display in place (a fault, a picture), keeping the screen objects.
  void change(CGDirectDisplayID id, const std::function<void(SimulatedDisplay&)>& change);
  /// The information services; absent: they cannot be asked.
  void setServices(std::optional<std::vector<std::optional<Dictionary>>> services);
  /// Posts NSApplicationDidChangeScreenParametersNotification on the calling thread.
  void notify();

  /// Called at the start of each CGDisplayCreateImage, so that a test can act in the middle of a capture.
  void setCaptureHook(std::function<void(CGDirectDisplayID)> hook);
  [[nodiscard]] int imagesMade() const;
  /// The bytes of the image made last, as long as somebody holds them.
  [[nodiscard]] std::shared_ptr<ImageBytes> lastImageBytes() const;

  // Displays
  [[nodiscard]] std::vector<std::shared_ptr<NSScreen>> screens() override;
  [[nodiscard]] CGRect CGDisplayBounds(CGDirectDisplayID display) override;
  [[nodiscard]] std::uint32_t CGDisplayVendorNumber(CGDirectDisplayID display) override;
  [[nodiscard]] std::uint32_t CGDisplayModelNumber(CGDirectDisplayID display) override;
  [[nodiscard]] std::uint32_t CGDisplaySerialNumber(CGDirectDisplayID display) override;
  [[nodiscard]] std::optional<std::vector<std::optional<Dictionary>>> displayInfoDictionaries() override;
  [[nodiscard]] std::shared_ptr<CGImage> CGDisplayCreateImage(CGDirectDisplayID display) override;

 private:
  struct State {
    std::vector<SimulatedDisplay> displays;
    std::vector<std::shared_ptr<NSScreen>> screens;
    std::optional<std::vector<std::optional<Dictionary>>> services = std::vector<std::optional<Dictionary>>{};
    std::function<void(CGDirectDisplayID)> captureHook;
    std::weak_ptr<ImageBytes> lastImageBytes;
    int imagesMade = 0;
  };
  [[nodiscard]] std::optional<SimulatedDisplay> find(CGDirectDisplayID id) const;

  NotificationCenter& center_;
  Synchronised<State> state_;
};

}  // namespace QelUtilVideo
