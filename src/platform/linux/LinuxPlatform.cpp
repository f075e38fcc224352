#include "platform/NotificationCenterImpl.h"
#include "platform/Platform.h"
#include "platform/Root.h"
#include "platform/WindowServer.h"
#include "platform/linux/core/LinuxBundle.h"
#include "platform/linux/core/LinuxCaptureDevices.h"
#include "platform/linux/core/LinuxClock.h"
#include "platform/linux/core/LinuxDiagnostics.h"
#include "platform/linux/core/LinuxDispatch.h"
#include "platform/linux/core/LinuxDisplayLinks.h"
#include "platform/linux/core/LinuxSystemLog.h"
#include "platform/linux/core/LinuxSystemVersion.h"
#include "platform/linux/core/LinuxUserDefaults.h"
#include "platform/linux/core/SystemExamination.h"
#include "platform/linux/egl/EglExamination.h"
#include "platform/linux/egl/EglOpenGL.h"
#include "platform/linux/media/CameraFrameMaker.h"
#include "platform/linux/media/PixmanImages.h"
#include "platform/linux/media/ScreenFrameMaker.h"
#include "platform/linux/v4l2/CameraExamination.h"
#include "platform/linux/v4l2/V4l2Cameras.h"
#include "platform/linux/vulkan/VulkanExamination.h"
#include "platform/linux/vulkan/VulkanMetal.h"
#include "platform/linux/x11/X11Cursor.h"
#include "platform/linux/x11/X11Displays.h"
#include "platform/linux/x11/X11EventPump.h"
#include "platform/linux/x11/X11Examination.h"
#include "platform/linux/x11/X11ScreenInput.h"
#include "platform/linux/x11/X11Views.h"
#include "platform/linux/x11/windowserver/X11WindowServer.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace QelUtilVideo {
namespace {

/// A part of the platform that is made when it is first asked for.
template <class T>
class OnFirstUse {
 public:
  template <class... Arguments>
  T& get(Arguments&&... arguments) {
    std::call_once(once_, [&] { part_ = std::make_unique<T>(std::forward<Arguments>(arguments)...); });
    return *part_;
  }

 private:
  std::once_flag once_;
  std::unique_ptr<T> part_;
};

/// A connection: one that displays, cursor and views share, and another one.
struct X11 {
  explicit X11(EventLoop& loop) {
    if (connection) pump.emplace(connection, loop);
  }
  std::shared_ptr<X11Connection> connection = X11Connection::open();
  std::optional<X11EventPump> pump;
};

/// One of the two is enough.
std::vector<Finding> examineDrivers() {
  std::vector<Finding> findings = examineVulkan(), others = examineOpenGL();
  const auto isMissing = [](const Finding& finding) { return finding.state == Finding::State::missing; };
  const auto excuse = [&](std::vector<Finding>& poor, const std::vector<Finding>& good, const char* name) {
    if (std::ranges::any_of(good, isMissing)) return;
    for (Finding& finding : poor) {
      if (!isMissing(finding)) continue;
      finding.state = Finding::State::limited;
      finding.detail += std::string(": ") + name + " draws all views";
    }
  };
  excuse(others, findings, "Vulkan");
  excuse(findings, others, "OpenGL");
  findings.insert(findings.end(), others.begin(), others.end());
  return findings;
}

std::vector<LinuxDiagnostics::Examination> examinations() {
  using Area = Finding::Area;
  using State = Finding::State;
  constexpr const char* otherServer = "End the X server that DISPLAY names, or set DISPLAY to another one.";
  constexpr const char* lookAtLog = "Look at the system's log for what the graphics driver says.";
  return {
      {{Area::displays, "X server", State::missing, "", otherServer}, [] { return examineX11(); }},
      {{Area::drawing, "Vulkan and OpenGL", State::missing, "", lookAtLog}, [] { return examineDrivers(); }},
      {{Area::drawing, "Drawing in windows", State::limited, "", otherServer},
       [] { return examineDrawingInWindows(); }},
      {{Area::cameras, "Cameras", State::missing, "", "Unplug the cameras, and plug them in again."},
       [] { return examineCameras(); }},
      {{Area::system, "Services", State::missing, "", "Look whether the home folder can be read."},
       [] { return examineSystem(); }}};
}

class LinuxPlatform final : public Platform {
 public:
  Dispatch& dispatch() override { return linuxDispatch(); }
  NotificationCenter& notificationCenter() override { return notificationCenter_.get(trouble_); }
  Clock& clock() override { return clock_; }
  SystemVersion& systemVersion() override { return systemVersion_; }
  UserDefaults& userDefaults() override { return userDefaults_; }
  Bundle& bundle() override { return bundle_.get(); }
  SystemLog& systemLog() override { return systemLog_.get(); }
  Displays& displays() override {
    return displays_.get(x11().connection, linuxDispatch().eventLoop(), notificationCenter(), trouble_);
  }
  WindowServer& windowServer() override {
    // On a connection of its own: large pictures hold nobody up who draws or follows displays.
    const auto& x11 = windowServerX11_.get(linuxDispatch().eventLoop());
    return windowServer_.get(x11.connection, linuxDispatch().eventLoop());
  }
  DisplayLinks& displayLinks() override {
    return displayLinks_.get(displays(), notificationCenter(), linuxDispatch().eventLoop());
  }
  CaptureDevices& captureDevices() override {
    return captureDevices_.get(notificationCenter(), cameras(),
                               [this](CGDirectDisplayID display) { return screenInput(display); });
  }
  Cursor& cursor() override { return cursor_.get(x11().connection); }
  Views& views() override { return views_.get(x11().connection, linuxDispatch().eventLoop(), trouble_); }
  Images& images() override { return images_; }
  Metal& metal() override {
    return metal_.get([this] { return bundle().pathForResource("shaders.lib"); }, trouble_);
  }
  OpenGL& openGL() override { return openGL_.get(trouble_); }
  Diagnostics& diagnostics() override { return diagnostics_.get(examinations()); }

 private:
  LinuxDispatch& linuxDispatch() { return dispatch_.get(trouble_); }
  CameraSource& cameras() {
    return cameras_.get(linuxDispatch().eventLoop(), notificationCenter(), [] {
      return [maker = std::make_shared<CameraFrameMaker>()](const CameraPicture& picture) {
        return maker->make(picture);
      };
    });
  }
  std::shared_ptr<AVCaptureInput> screenInput(CGDirectDisplayID display) {
    if (displays().CGDisplayBounds(display).size.width <= 0) return nullptr;
    return std::make_shared<X11ScreenInput>(x11().connection->displayName(), display, [] {
      return [maker = std::make_shared<ScreenFrameMaker>()](std::shared_ptr<CGImage> picture,
                                                            const CGImageRef& cursor, CGPoint place) {
        return maker->make(std::move(picture), cursor, place);
      };
    });
  }
  X11& x11() { return x11_.get(linuxDispatch().eventLoop()); }

  const TroubleHandler trouble_ = [this](const std::string& text) { platformTrouble(*this, text); };
  // Parts that others stand on come first.
  OnFirstUse<LinuxSystemLog> systemLog_;
  OnFirstUse<LinuxDispatch> dispatch_;
  OnFirstUse<NotificationCenterImpl> notificationCenter_;
  LinuxClock clock_;
  LinuxSystemVersion systemVersion_;
  LinuxUserDefaults userDefaults_;
  OnFirstUse<LinuxBundle> bundle_;
  OnFirstUse<X11> x11_;
  OnFirstUse<X11Displays> displays_;
  OnFirstUse<X11> windowServerX11_;
  OnFirstUse<X11WindowServer> windowServer_;
  OnFirstUse<LinuxDisplayLinks> displayLinks_;
  OnFirstUse<X11Cursor> cursor_;
  OnFirstUse<V4l2Cameras> cameras_;
  OnFirstUse<LinuxCaptureDevices> captureDevices_;
  OnFirstUse<X11Views> views_;
  PixmanImages images_;
  OnFirstUse<VulkanMetal> metal_;
  OnFirstUse<EglOpenGL> openGL_;
  OnFirstUse<LinuxDiagnostics> diagnostics_;
};

}  // namespace

std::unique_ptr<Platform> makePlatform() { return std::make_unique<LinuxPlatform>(); }

}  // namespace QelUtilVideo
