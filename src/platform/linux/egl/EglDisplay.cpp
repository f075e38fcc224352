#include "platform/linux/egl/EglDisplay.h"

#include "platform/linux/egl/DriverFacts.h"
#include "platform/linux/egl/EglBinding.h"
#include "platform/linux/egl/FreshThread.h"

#include <dlfcn.h>
#include <epoxy/gl.h>

#include <array>
#include <utility>
#include <vector>

namespace QelUtilVideo {

namespace {

/// A display that may turn out to work.
struct Candidate {
  std::string name;
  EGLDisplay display = EGL_NO_DISPLAY;
};

/// The graphics processors; a driver's software device, which is the surfaceless display again, is none.
std::vector<EGLDeviceEXT> devices(const char* extensions) {
  if (!listsExtension(extensions, "EGL_EXT_platform_device") ||
      !listsExtension(extensions, "EGL_EXT_device_enumeration") ||
      !listsExtension(extensions, "EGL_EXT_device_query")) {
    return {};
  }
  EGLint count = 0;
  if (!eglQueryDevicesEXT(0, nullptr, &count)) return {};
  std::vector<EGLDeviceEXT> devices(static_cast<std::size_t>(count));
  if (!eglQueryDevicesEXT(count, devices.data(), &count)) return {};
  devices.resize(static_cast<std::size_t>(count));
  std::erase_if(devices, [](EGLDeviceEXT device) {
    return listsExtension(eglQueryDeviceStringEXT(device, EGL_EXTENSIONS), "EGL_MESA_device_software");
  });
  return devices;
}

/// The displays that need no window system.
std::vector<Candidate> candidates() {
  const char* extensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  if (!listsExtension(extensions, "EGL_EXT_platform_base")) return {};
  std::vector<Candidate> candidates;
  if (listsExtension(extensions, "EGL_MESA_platform_surfaceless")) {
    candidates.push_back({"surfaceless", eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA,
                                                                  EGL_DEFAULT_DISPLAY, nullptr)});
  }
  for (EGLDeviceEXT device : devices(extensions)) {
    candidates.push_back({"device", eglGetPlatformDisplayEXT(EGL_PLATFORM_DEVICE_EXT, device, nullptr)});
  }
  return candidates;
}

/// Any configuration with eight bits per component will do: nothing is drawn to a surface of EGL's.
EGLConfig chooseConfig(EGLDisplay display) {
  constexpr std::array attributes{EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                                  EGL_RED_SIZE,     8, EGL_GREEN_SIZE,      8,
                                  EGL_BLUE_SIZE,    8, EGL_ALPHA_SIZE,      8,
                                  EGL_NONE};
  EGLConfig config = nullptr;
  EGLint count = 0;
  const bool found = eglChooseConfig(display, attributes.data(), &config, 1, &count) && count > 0;
  return found ? config : nullptr;
}

/// A display that draws, or what keeps it from drawing.
struct Attempt {
  std::shared_ptr<const EglDisplay> display;
  bool software = false;
  std::string reason;
};

Attempt refused(std::string reason) { return {nullptr, false, std::move(reason)}; }

/// Opens the display and makes a context current for a moment, to be sure that it can.
Attempt tryOpen(EGLDisplay display) {
  if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr)) {
    return refused(eglErrorName(eglGetError()));
  }
  if (!listsExtension(eglQueryString(display, EGL_EXTENSIONS), "EGL_KHR_surfaceless_context")) {
    return refused("no contexts without a surface");
  }
  const EGLConfig config = chooseConfig(display);
  if (!config) return refused("no configuration for OpenGL");

  auto opened = std::make_shared<const EglDisplay>(display, config);
  EGLint error = EGL_SUCCESS;
  const EglContextHandle context = opened->makeContext(error);
  if (!context) return refused("no core profile 3.2: " + eglErrorName(error));
  const EglBinding before = EglBinding::current();
  if (!eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context.get())) {
    return refused("a context cannot be used: " + eglErrorName(eglGetError()));
  }
  const auto* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
  const bool software = isSoftwareRenderer(renderer ? renderer : "");
  before.restore(display);
  return {std::move(opened), software, {}};
}

/// The first display that draws on hardware, else the first that draws.
std::shared_ptr<const EglDisplay> openBest(std::string& reasons) {
  const auto tryCandidate = [&](const Candidate& candidate) {
    Attempt attempt = tryOpen(candidate.display);
    if (!attempt.display) reasons += (reasons.empty() ? "" : "; ") + candidate.name + ": " + attempt.reason;
    return attempt;
  };
  std::shared_ptr<const EglDisplay> software;
  for (const Candidate& candidate : candidates()) {
    Attempt attempt = tryCandidate(candidate);
    if (attempt.display && !attempt.software) return attempt.display;
    if (!software) software = std::move(attempt.display);
  }
  // Last, since it connects to a display server where there is one.
  return software ? software : tryCandidate({"default display", eglGetDisplay(EGL_DEFAULT_DISPLAY)}).display;
}

/// Whether there is a library to look OpenGL's functions up in; either will do. It stays loaded: graphics
/// libraries are not made to be unloaded.
bool hasOpenGLFunctions() {
  return dlopen("libOpenGL.so.0", RTLD_LAZY | RTLD_NODELETE) ||
         dlopen("libGL.so.1", RTLD_LAZY | RTLD_NODELETE);
}

}  // namespace

EglContextHandle::EglContextHandle(EglContextHandle&& other) noexcept
    : display_(other.display_), context_(std::exchange(other.context_, EGL_NO_CONTEXT)) {}

EglContextHandle& EglContextHandle::operator=(EglContextHandle&& other) noexcept {
  std::swap(display_, other.display_);
  std::swap(context_, other.context_);
  return *this;
}

EglContextHandle::~EglContextHandle() {
  if (context_ != EGL_NO_CONTEXT) eglDestroyContext(display_, context_);
}

std::shared_ptr<const EglDisplay> EglDisplay::open(std::string& reasons) {
  // The function loader ends the process when it is asked for anything of a library that is not there.
  if (!epoxy_has_egl()) {
    reasons = "libEGL is not installed";
    return nullptr;
  }
  if (!hasOpenGLFunctions()) {
    reasons = "neither libOpenGL nor libGL is installed";
    return nullptr;
  }
  return onFreshThread([&] { return openBest(reasons); });
}

EglContextHandle EglDisplay::makeContext(EGLint& error) const {
  constexpr std::array attributes{EGL_CONTEXT_MAJOR_VERSION_KHR,
                                  3,
                                  EGL_CONTEXT_MINOR_VERSION_KHR,
                                  2,
                                  EGL_CONTEXT_OPENGL_PROFILE_MASK_KHR,
                                  EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT_KHR,
                                  EGL_NONE};
  const EGLenum apiBefore = eglQueryAPI();
  eglBindAPI(EGL_OPENGL_API);
  EglContextHandle context(display_, eglCreateContext(display_, config_, EGL_NO_CONTEXT, attributes.data()));
  error = context ? EGL_SUCCESS : eglGetError();
  if (apiBefore != EGL_NONE) eglBindAPI(apiBefore);
  return context;
}

}  // namespace QelUtilVideo
