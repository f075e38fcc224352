#include "platform/linux/egl/EglDisplay.h"

#include "platform/linux/core/NoPipeSignal.h"
#include "platform/linux/core/PrivateConnection.h"
#include "platform/linux/egl/DriverFacts.h"
#include "platform/linux/egl/EglBinding.h"
#include "platform/linux/egl/FreshThread.h"

#include <dlfcn.h>
#include <epoxy/gl.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace QelUtilVideo {

namespace {

// Of EGL_EXT_platform_xcb, which libepoxy 1.5 does not know.
constexpr EGLenum kPlatformXcb = 0x31DC;
constexpr EGLint kPlatformXcbScreen = 0x31DE;

constexpr const char* kNeedsSurface = "no contexts without a surface";

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

EGLint attributeOf(EGLDisplay display, EGLConfig config, EGLint attribute) {
  EGLint value = 0;
  eglGetConfigAttrib(display, config, attribute, &value);
  return value;
}

/// A configuration for windows of this visual, with an alpha channel where there is one; else one for
/// windows of this depth, which some visuals have to be content with. Null when there is none.
EGLConfig chooseWindowConfig(EGLDisplay display, std::uint32_t visual, int depth) {
  constexpr std::array attributes{EGL_SURFACE_TYPE, EGL_WINDOW_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                                  EGL_NONE};
  EGLint count = 0;
  if (!eglChooseConfig(display, attributes.data(), nullptr, 0, &count)) return nullptr;
  std::vector<EGLConfig> configs(static_cast<std::size_t>(count));
  if (!eglChooseConfig(display, attributes.data(), configs.data(), count, &count)) return nullptr;
  const auto fitness = [&](EGLConfig config) {
    const bool isOfVisual =
        static_cast<std::uint32_t>(attributeOf(display, config, EGL_NATIVE_VISUAL_ID)) == visual;
    if (isOfVisual) return attributeOf(display, config, EGL_ALPHA_SIZE) == 8 ? 3 : 2;
    return attributeOf(display, config, EGL_BUFFER_SIZE) == depth ? 1 : 0;
  };
  // The first of the fittest: EGL lists those with the fewest extras first.
  const auto best = std::ranges::max_element(configs, {}, fitness);
  return best != configs.end() && fitness(*best) > 0 ? *best : nullptr;
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
    return refused(kNeedsSurface);
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

/// Whether EGL and OpenGL can be called at all. The function loader ends the process when it is asked for
/// anything of a library that is not there.
bool hasLibraries(std::string& reasons) {
  if (!epoxy_has_egl()) {
    reasons = "libEGL is not installed";
    return false;
  }
  if (!hasOpenGLFunctions()) {
    reasons = "neither libOpenGL nor libGL is installed";
    return false;
  }
  return true;
}

/// EGL's display for the connection, ready for use.
EGLDisplay initialise(const PrivateConnection& connection, std::string& reasons) {
  const char* extensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  if (!listsExtension(extensions, "EGL_EXT_platform_base") ||
      !listsExtension(extensions, "EGL_EXT_platform_xcb")) {
    reasons = "EGL_EXT_platform_xcb is missing";
    return EGL_NO_DISPLAY;
  }
  const std::array attributes{kPlatformXcbScreen, connection.screen(), EGL_NONE};
  EGLDisplay display = eglGetPlatformDisplayEXT(kPlatformXcb, connection.get(), attributes.data());
  if (display != EGL_NO_DISPLAY && eglInitialize(display, nullptr, nullptr)) return display;
  reasons = eglErrorName(eglGetError());
  return EGL_NO_DISPLAY;
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
  if (context_ == EGL_NO_CONTEXT) return;
  const NoPipeSignal noSignal;
  eglDestroyContext(display_, context_);
}

std::shared_ptr<const EglDisplay> EglDisplay::open(std::string& reasons) {
  if (!hasLibraries(reasons)) return nullptr;
  return onFreshThread([&] { return openBest(reasons); });
}

std::shared_ptr<const EglDisplay> EglDisplay::open(const NativeWindow& window, std::string& reasons) {
  if (!hasLibraries(reasons)) return nullptr;
  const NoPipeSignal noSignal;
  auto connection = PrivateConnection::open(window.display);
  if (!connection) {
    reasons = "no connection to the X server";
    return nullptr;
  }
  EGLDisplay display = initialise(*connection, reasons);
  if (display == EGL_NO_DISPLAY) return nullptr;
  EGLConfig config = chooseWindowConfig(display, window.visual, connection->depthOf(window.visual));
  // From here on it is terminated whatever happens.
  std::shared_ptr<const EglDisplay> opened(new EglDisplay(display, config, std::move(connection), window));
  if (!listsExtension(eglQueryString(display, EGL_EXTENSIONS), "EGL_KHR_surfaceless_context")) {
    reasons = kNeedsSurface;
    return nullptr;
  }
  if (config) return opened;
  reasons = "no configuration for windows of this visual";
  return nullptr;
}

EglDisplay::EglDisplay(EGLDisplay display, EGLConfig config) : display_(display), config_(config) {}

EglDisplay::EglDisplay(EGLDisplay display, EGLConfig config, std::unique_ptr<PrivateConnection> connection,
                       const NativeWindow& window)
    : display_(display),
      config_(config),
      connection_(std::move(connection)),
      server_(window.display),
      visual_(window.visual) {}

EglDisplay::~EglDisplay() {
  if (!connection_) return;
  const NoPipeSignal noSignal;
  // Before the connection, whose address may come again and would then stand for a display that is known.
  eglTerminate(display_);
}

bool EglDisplay::reaches(const NativeWindow& window) const {
  return connection_ && isAlive() && window.display == server_ && window.visual == visual_;
}

std::optional<PixelSize> EglDisplay::sizeOf(const NativeWindow& window) const {
  return connection_ ? connection_->sizeOf(window.window) : std::nullopt;
}

bool EglDisplay::isAlive() const { return !connection_ || connection_->isAlive(); }

std::string EglDisplay::lossOfWindow() const {
  return isAlive() ? "it was destroyed" : "its X server is gone";
}

void EglDisplay::flush() const {
  if (connection_) connection_->flush();
}

EglContextHandle EglDisplay::makeContext(EGLint& error) const {
  constexpr std::array attributes{EGL_CONTEXT_MAJOR_VERSION_KHR,
                                  3,
                                  EGL_CONTEXT_MINOR_VERSION_KHR,
                                  2,
                                  EGL_CONTEXT_OPENGL_PROFILE_MASK_KHR,
                                  EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT_KHR,
                                  EGL_NONE};
  const NoPipeSignal noSignal;
  const EGLenum apiBefore = eglQueryAPI();
  eglBindAPI(EGL_OPENGL_API);
  EglContextHandle context(display_, eglCreateContext(display_, config_, EGL_NO_CONTEXT, attributes.data()));
  error = context ? EGL_SUCCESS : eglGetError();
  if (apiBefore != EGL_NONE) eglBindAPI(apiBefore);
  return context;
}

}  // namespace QelUtilVideo
