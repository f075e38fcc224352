#include "platform/linux/egl/EglExamination.h"

#include "platform/linux/core/PrivateConnection.h"
#include "platform/linux/egl/DriverFacts.h"
#include "platform/linux/egl/EglBinding.h"
#include "platform/linux/egl/EglDisplay.h"
#include "platform/linux/egl/FreshThread.h"

#include <epoxy/gl.h>
#include <unistd.h>
#include <xcb/xcb.h>

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

/// A visual of the kind that views in windows have; 0 when there is none.
std::uint32_t viewVisual(const PrivateConnection& server) {
  constexpr int depth = 24;
  for (auto screens = xcb_setup_roots_iterator(xcb_get_setup(server.get())); screens.rem > 0;
       xcb_screen_next(&screens)) {
    for (auto depths = xcb_screen_allowed_depths_iterator(screens.data); depths.rem > 0;
         xcb_depth_next(&depths)) {
      if (depths.data->depth == depth && depths.data->visuals_len > 0) {
        return xcb_depth_visuals(depths.data)->visual_id;
      }
    }
  }
  return 0;
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
  std::vector<Finding> findings{egl(display.get()), renderer()};
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

std::vector<Finding> examineDrawingInWindows() {
  constexpr const char* subject = "Drawing in windows";
  constexpr const char* otherEgl =
      "Install an EGL that draws in the windows of this server, such as that of the package libegl-mesa0.";
  const auto offscreenOnly = [](const std::string& why, const char* remedy) {
    return std::vector{finding(subject, State::limited, why + ": views are drawn off screen only", remedy)};
  };
  const auto server = PrivateConnection::open("");
  if (!server) return offscreenOnly("there is no X server", "Set DISPLAY to a running X server.");
  const std::uint32_t visual = viewVisual(*server);
  if (visual == 0) {
    return offscreenOnly("the X server has no windows of 24 bits", "Start the X server with a depth of 24.");
  }
  return onFreshThread([&]() -> std::vector<Finding> {
    std::string reasons;
    const auto display = EglDisplay::open({.display = "", .window = 0, .visual = visual}, reasons);
    if (!display) return offscreenOnly(reasons, otherEgl);
    EGLint error = EGL_SUCCESS;
    if (!display->makeContext(error)) return offscreenOnly(eglErrorName(error), otherEgl);
    return {finding(subject, State::ok, "by EGL_EXT_platform_xcb")};
  });
}

}  // namespace QelUtilVideo
