#include "platform/linux/egl/EglExamination.h"

#include "platform/linux/egl/DriverFacts.h"
#include "platform/linux/egl/EglBinding.h"
#include "platform/linux/egl/EglDisplay.h"
#include "platform/linux/egl/FreshThread.h"

#include <epoxy/gl.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace QelUtilVideo {

namespace {

using State = Finding::State;

Finding finding(const char* subject, State state, std::string detail, std::string remedy = {}) {
  return {Finding::Area::drawing, subject, state, std::move(detail), std::move(remedy)};
}

Finding noDriver(const std::string& reasons) {
  return finding(
      "OpenGL", State::missing, "no driver: " + reasons,
      "Install the packages libegl1, libopengl0 and libgl1-mesa-dri, or the driver of the graphics "
      "processor.");
}

/// What to do for a driver on hardware, where there is hardware.
std::string softwareRemedy() {
  std::error_code error;
  bool exists = false;
  for (const auto& entry : std::filesystem::directory_iterator("/dev/dri", error)) {
    if (!entry.path().filename().string().starts_with("renderD")) continue;
    if (::access(entry.path().c_str(), R_OK | W_OK) != 0) {
      return "Add the user to the group that may use " + entry.path().string() +
             ", which is mostly called render: `usermod -aG render USER`.";
    }
    exists = true;
  }
  if (exists || std::filesystem::exists("/dev/nvidia0", error)) {
    return "Install the driver of the graphics processor, with its EGL part.";
  }
  return "There is no graphics processor here that could do better; large views cost much time.";
}

std::string text(const char* string) { return string ? string : "unknown"; }

std::string glString(GLenum name) { return text(reinterpret_cast<const char*>(glGetString(name))); }

Finding renderer() {
  const std::string name = glString(GL_RENDERER);
  const bool software = isSoftwareRenderer(name);
  const std::string detail = name + " of " + glString(GL_VENDOR) + ", version " + glString(GL_VERSION) +
                             (software ? ", in software" : "");
  if (software) return finding("OpenGL", State::limited, detail, softwareRemedy());
  return finding("OpenGL", State::ok, detail);
}

Finding egl(EGLDisplay display) {
  return finding(
      "EGL", State::ok,
      text(eglQueryString(display, EGL_VERSION)) + " of " + text(eglQueryString(display, EGL_VENDOR)));
}

Finding windows() {
  constexpr const char* subject = "Drawing in windows";
  if (listsExtension(eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), "EGL_EXT_platform_xcb")) {
    return finding(subject, State::ok, "EGL_EXT_platform_xcb");
  }
  return finding(subject, State::limited, "EGL has no EGL_EXT_platform_xcb: views are drawn off screen only",
                 "Install an EGL with this extension, such as Mesa's from the package libegl-mesa0.");
}

/// With a context of the display current, as the library's own are.
std::vector<Finding> examine(const EglDisplay& display) {
  EGLint error = EGL_SUCCESS;
  const EglContextHandle context = display.makeContext(error);
  if (!context) return {noDriver(eglErrorName(error))};
  const EglBinding before = EglBinding::current();
  eglBindAPI(EGL_OPENGL_API);
  if (!eglMakeCurrent(display.get(), EGL_NO_SURFACE, EGL_NO_SURFACE, context.get())) {
    return {noDriver(eglErrorName(eglGetError()))};
  }
  std::vector<Finding> findings{egl(display.get()), renderer(), windows()};
  before.restore(display.get());
  return findings;
}

}  // namespace

std::vector<Finding> examineOpenGL() {
  std::string reasons;
  const auto display = EglDisplay::open(reasons);
  if (!display) return {noDriver(reasons)};
  return onFreshThread([&] { return examine(*display); });
}

}  // namespace QelUtilVideo
