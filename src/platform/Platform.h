#pragma once

#include <memory>

namespace QelUtilVideo {

class Bundle;
class CaptureDevices;
class Clock;
class Cursor;
class Diagnostics;
class Dispatch;
class DisplayLinks;
class Displays;
class Images;
class Metal;
class NotificationCenter;
class OpenGL;
class SystemLog;
class SystemVersion;
class UserDefaults;
class Views;
class WindowServer;

/// Everything the library expects of a machine. Each part is made when it is first asked for and lives
/// as long as the platform. Any thread.
class Platform {
 public:
  virtual ~Platform() = default;
  virtual Dispatch& dispatch() = 0;
  virtual NotificationCenter& notificationCenter() = 0;
  virtual Clock& clock() = 0;
  virtual SystemVersion& systemVersion() = 0;
  virtual UserDefaults& userDefaults() = 0;
  virtual Bundle& bundle() = 0;
  virtual SystemLog& systemLog() = 0;
  virtual Displays& displays() = 0;
  virtual DisplayLinks& displayLinks() = 0;
  virtual WindowServer& windowServer() = 0;
  virtual CaptureDevices& captureDevices() = 0;
  virtual Cursor& cursor() = 0;
  virtual Views& views() = 0;
  virtual Images& images() = 0;
  virtual Metal& metal() = 0;
  virtual OpenGL& openGL() = 0;
  virtual Diagnostics& diagnostics() = 0;
};

/// The machine that the library runs on unless a test builds another.
[[nodiscard]] std::unique_ptr<Platform> makePlatform();

}  // namespace QelUtilVideo
