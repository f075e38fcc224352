#pragma once

#include "capture/device/Device.h"

#include <QelUtilVideo/CapturableScreen.h>

#include <memory>
#include <string>

namespace QelUtilVideo::device {

/// A whole display as a device. It keeps its identity, the display ID, while the screen object behind it is
/// replaced at each change of the display arrangement.
class ScreenDevice final : public Device, public CapturableScreen {
  struct Key {};

 public:
  enum class Error { failedToCreateInput };

  /// Null, and nothing logged, for a screen without a display ID.
  static std::shared_ptr<ScreenDevice> make(Root& root, std::shared_ptr<NSScreen> screen);
  ScreenDevice(Key, Root& root, std::shared_ptr<NSScreen> screen, CGDirectDisplayID displayID,
               std::string displayProdutName);
  ~ScreenDevice() override;

  [[nodiscard]] std::string uniqueID() const override { return uniqueID_; }
  [[nodiscard]] std::string name() const override;
  /// Captures the display once to find out.
  [[nodiscard]] bool isAvailable() const override;
  [[nodiscard]] bool isCamera() const override { return false; }
  [[nodiscard]] bool isScreen() const override { return true; }
  [[nodiscard]] bool isWindow() const override { return false; }

  [[nodiscard]] CGDirectDisplayID displayID() const override { return displayID_; }
  [[nodiscard]] std::shared_ptr<NSScreen> screen() const override { return screen_.copy(); }
  /// Ignores null.
  void setScreen(std::shared_ptr<NSScreen> screen);
  [[nodiscard]] std::shared_ptr<NSImage> snapshotImage() const override;

  Result<std::shared_ptr<Session>> makeSession() override;

 private:
  Synchronised<std::shared_ptr<NSScreen>> screen_;
  const CGDirectDisplayID displayID_;
  const std::string displayProdutName_;
  const std::string uniqueID_;
};

[[nodiscard]] NSError makeError(ScreenDevice::Error error);

}  // namespace QelUtilVideo::device
