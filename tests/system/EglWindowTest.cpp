#include "platform/OpenGL.h"
#include "platform/Synchronised.h"
#include "platform/linux/egl/EglOpenGL.h"
#include "support/PrivateXServer.h"
#include "support/WarmUp.h"

#include <epoxy/gl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <xcb/xcb.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Extent {
  int width = 0;
  int height = 0;
};

/// Rows from the top, each pixel as 0xRRGGBB.
struct Picture {
  Extent size;
  std::vector<std::uint32_t> pixels;
  [[nodiscard]] std::uint32_t at(int x, int y) const {
    return pixels[static_cast<std::size_t>(y * size.width + x)];
  }
};

struct Free {
  void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using Reply = std::unique_ptr<T, Free>;

/// An X server with the windows that the test makes in it: white where nobody draws.
class Desktop {
 public:
  explicit Desktop(int depth = 24)
      : server_(PrivateXServer::start({.width = 1920, .depth = depth})),
        connection_(xcb_connect(server_->display().c_str(), nullptr)),
        screen_(xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data) {}

  [[nodiscard]] const xcb_screen_t& screen() const { return *screen_; }
  void kill() { server_->kill(); }

  /// Side by side, of the root's depth and visual unless they are given.
  NativeWindow makeWindow(Extent size, xcb_window_t parent = XCB_NONE, int depth = 0,
                          xcb_visualid_t visual = 0) {
    const xcb_window_t window = xcb_generate_id(connection_.get());
    if (!visual) visual = screen_->root_visual;
    const xcb_colormap_t colormap = xcb_generate_id(connection_.get());
    xcb_create_colormap(connection_.get(), XCB_COLORMAP_ALLOC_NONE, colormap, screen_->root, visual);
    const std::array<std::uint32_t, 4> values{0xFFFFFFFF, 0, 1, colormap};
    perform(xcb_create_window_checked(
        connection_.get(), static_cast<std::uint8_t>(depth ? depth : screen_->root_depth), window,
        parent ? parent : screen_->root,
        static_cast<std::int16_t>(parent ? 0 : std::exchange(nextX_, nextX_ + 320) % 1920), 0,
        static_cast<std::uint16_t>(size.width), static_cast<std::uint16_t>(size.height), 0,
        XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
        XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_COLORMAP, values.data()));
    perform(xcb_map_window_checked(connection_.get(), window));
    return {server_->display(), window, visual};
  }

  void resize(const NativeWindow& window, Extent size) {
    const std::array values{static_cast<std::uint32_t>(size.width), static_cast<std::uint32_t>(size.height)};
    perform(xcb_configure_window_checked(connection_.get(), window.window,
                                         XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, values.data()));
  }

  void clear(const NativeWindow& window) {
    perform(xcb_clear_area_checked(connection_.get(), 0, window.window, 0, 0, 0, 0));
  }

  void destroy(const NativeWindow& window) {
    perform(xcb_destroy_window_checked(connection_.get(), window.window));
  }

  Picture picture(const NativeWindow& window) {
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(
        connection_.get(), xcb_get_geometry(connection_.get(), window.window), nullptr));
    const Reply<xcb_get_image_reply_t> image(
        xcb_get_image_reply(connection_.get(),
                            xcb_get_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, window.window, 0, 0,
                                          geometry->width, geometry->height, ~0U),
                            nullptr));
    Picture picture{{geometry->width, geometry->height}, {}};
    const xcb_visualtype_t type = visual(window.visual);
    const std::uint8_t* bytes = xcb_get_image_data(image.get());
    const std::size_t bytesPerPixel = geometry->depth == 16 ? 2 : 4;
    const std::size_t bytesPerRow = (geometry->width * bytesPerPixel + 3) / 4 * 4;
    for (int y = 0; y < geometry->height; ++y) {
      for (int x = 0; x < geometry->width; ++x) {
        std::uint32_t pixel = 0;
        std::memcpy(
            &pixel,
            bytes + static_cast<std::size_t>(y) * bytesPerRow + static_cast<std::size_t>(x) * bytesPerPixel,
            bytesPerPixel);
        picture.pixels.push_back(component(pixel, type.red_mask) << 16 |
                                 component(pixel, type.green_mask) << 8 | component(pixel, type.blue_mask));
      }
    }
    return picture;
  }

  /// A true-colour visual of the depth; 0 when there is none.
  [[nodiscard]] xcb_visualid_t visualOfDepth(int wanted) const {
    for (auto depth = xcb_screen_allowed_depths_iterator(screen_); depth.rem > 0; xcb_depth_next(&depth)) {
      const auto visuals = xcb_depth_visuals_iterator(depth.data);
      if (depth.data->depth == wanted && visuals.rem > 0) return visuals.data->visual_id;
    }
    return 0;
  }

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
  };

  /// As eight bits.
  static std::uint32_t component(std::uint32_t pixel, std::uint32_t mask) {
    return static_cast<std::uint32_t>(((pixel & mask) >> std::countr_zero(mask)) * 255ULL /
                                      (mask >> std::countr_zero(mask)));
  }

  void perform(xcb_void_cookie_t request) {
    const Reply<xcb_generic_error_t> error(xcb_request_check(connection_.get(), request));
    EXPECT_FALSE(error) << "X error " << int{error->error_code};
  }

  [[nodiscard]] xcb_visualtype_t visual(xcb_visualid_t id) const {
    for (auto depth = xcb_screen_allowed_depths_iterator(screen_); depth.rem > 0; xcb_depth_next(&depth)) {
      for (auto it = xcb_depth_visuals_iterator(depth.data); it.rem > 0; xcb_visualtype_next(&it)) {
        if (it.data->visual_id == id) return *it.data;
      }
    }
    return {};
  }

  std::unique_ptr<PrivateXServer> server_;
  std::unique_ptr<xcb_connection_t, Disconnect> connection_;
  const xcb_screen_t* screen_;
  std::int16_t nextX_ = 0;
};

// A driver keeps what it has opened until the process ends.
const qeltest::WarmUp warmUp([] {
  if (!PrivateXServer::isInstalled()) return;
  Desktop desktop;
  const NativeWindow window = desktop.makeWindow({8, 8});
  EglOpenGL openGL(nullptr);
  for (const NativeWindow* drawable : {static_cast<const NativeWindow*>(nullptr), &window}) {
    static_cast<void>(openGL.makeContext({}, drawable));
  }
});

constexpr std::uint32_t red = 0xFF0000, green = 0x00FF00, blue = 0x0000FF, yellow = 0xFFFF00, black = 0;

void paint(std::uint32_t color, int x, int y, int width, int height) {
  const auto component = [color](int shift) { return static_cast<float>(color >> shift & 0xFF) / 255; };
  glEnable(GL_SCISSOR_TEST);
  glScissor(x, y, width, height);
  glClearColor(component(16), component(8), component(0), 1);
  glClear(GL_COLOR_BUFFER_BIT);
  glDisable(GL_SCISSOR_TEST);
}

/// Presents a picture whose quarters are red, green (the upper ones), blue and yellow. False: the context
/// could not be made current.
bool presentQuarters(NSOpenGLContext& context, Extent size,
                     const std::function<void()>& beforeFlushing = nullptr,
                     const std::function<void()>& afterwards = nullptr) {
  context.setSurfaceSize({static_cast<double>(size.width), static_cast<double>(size.height)});
  const ContextLock lock(context.cglContextObj());
  if (!context.makeCurrentContext()) return false;
  const int x = size.width / 2, y = size.height / 2;
  paint(red, 0, y, x, size.height - y);
  paint(green, x, y, size.width - x, size.height - y);
  paint(blue, 0, 0, x, y);
  paint(yellow, x, 0, size.width - x, y);
  if (beforeFlushing) beforeFlushing();
  context.flushBuffer();
  EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
  if (afterwards) afterwards();
  return true;
}

/// The first pixel that is not of its quarter's colour, in words; close to where they meet all will do but
/// black and white.
std::string faultIn(const Picture& picture) {
  const auto [width, height] = picture.size;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool isLeft = 2 * x < width, isUpper = 2 * y < height;
      const std::uint32_t expected = isUpper ? (isLeft ? red : green) : (isLeft ? blue : yellow);
      const bool isClose = std::abs(2 * x - width) <= 8 || std::abs(2 * y - height) <= 8;
      const std::uint32_t found = picture.at(x, y);
      if (isClose ? found != black && found != 0xFFFFFF : found == expected) continue;
      std::array<char, 80> text{};
      std::snprintf(text.data(), text.size(), "%d, %d is %06x instead of %06x", x, y, found, expected);
      return text.data();
    }
  }
  return {};
}

std::string faultIn(const Picture& picture, std::uint32_t color) {
  const bool isAll = std::ranges::all_of(picture.pixels, [&](std::uint32_t pixel) { return pixel == color; });
  return isAll ? "" : "more than one colour, or another one";
}

class EglWindows : public testing::Test {
 protected:
  void SetUp() override {
    QEL_REQUIRE_X_SERVER();
    if (!openGL.makeContext({}, nullptr)) GTEST_SKIP() << "This machine has no OpenGL driver";
    desktop = std::make_unique<Desktop>();
  }

  std::shared_ptr<NSOpenGLContext> contextFor(const NativeWindow& window) {
    auto context = openGL.makeContext({}, &window);
    EXPECT_TRUE(context);
    return context;
  }

  /// What is wrong with what the window shows, given the time that the server takes to show it.
  template <class... Colors>
  static std::string fault(Desktop& desktop, const NativeWindow& window, Colors... colors) {
    std::string fault;
    for (int wait = 0; wait < 2000; ++wait, std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
      fault = faultIn(desktop.picture(window), colors...);
      if (fault.empty()) break;
    }
    return fault;
  }

  /// Those since it was last asked.
  std::vector<std::string> takeTroubles() {
    return troubles.with([](auto& texts) { return std::exchange(texts, {}); });
  }

  Synchronised<std::vector<std::string>> troubles;
  EglOpenGL openGL{
      [this](const std::string& text) { troubles.with([&](auto& texts) { texts.push_back(text); }); }};
  std::unique_ptr<Desktop> desktop;
};

TEST_F(EglWindows, showWhatWasPresentedStretchedToTheirSizeWhateverTheServerLostMeanwhile) {
  const NativeWindow window = desktop->makeWindow({60, 40});
  const auto context = contextFor(window);
  context->presentAgain();
  EXPECT_EQ(fault(*desktop, window, black), "");
  EXPECT_TRUE(presentQuarters(*context, {60, 40}));
  EXPECT_EQ(fault(*desktop, window), "");

  desktop->clear(window);
  EXPECT_EQ(fault(*desktop, window, 0xFFFFFF), "");
  context->presentAgain();
  EXPECT_EQ(fault(*desktop, window), "");

  for (const Extent size : {Extent{150, 90}, Extent{31, 170}, Extent{300, 200}, Extent{1, 1}}) {
    desktop->resize(window, size);
    context->presentAgain();
    EXPECT_EQ(fault(*desktop, window), "") << size.width << " x " << size.height;
    EXPECT_TRUE(presentQuarters(*context, {size.width / 2 * 2 + 20, 64}));
    EXPECT_EQ(fault(*desktop, window), "") << size.width << " x " << size.height;
  }
  EXPECT_THAT(takeTroubles(), IsEmpty());
}

TEST_F(EglWindows, leaveTheStateOfWhoeverDrawsAsItWas) {
  const NativeWindow window = desktop->makeWindow({60, 40});
  const auto context = contextFor(window);
  constexpr std::array effects{GL_SCISSOR_TEST, GL_FRAMEBUFFER_SRGB, GL_RASTERIZER_DISCARD};
  constexpr std::array bindings{GL_DRAW_FRAMEBUFFER_BINDING, GL_READ_FRAMEBUFFER_BINDING,
                                GL_RENDERBUFFER_BINDING, GL_DRAW_BUFFER, GL_READ_BUFFER};
  std::array<GLint, bindings.size()> before{};
  const auto obstruct = [&] {
    for (const GLenum effect : effects) glEnable(effect);
    glScissor(0, 0, 1, 1);
    glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
    for (std::size_t i = 0; i < bindings.size(); ++i) glGetIntegerv(bindings[i], &before[i]);
  };
  const auto expectUnchanged = [&] {
    for (GLenum effect : effects) EXPECT_TRUE(glIsEnabled(effect)) << std::hex << effect;
    std::array<GLboolean, 4> mask{};
    glGetBooleanv(GL_COLOR_WRITEMASK, mask.data());
    EXPECT_THAT(mask, ElementsAre(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE));
    for (std::size_t i = 0; i < bindings.size(); ++i) {
      GLint name = 0;
      glGetIntegerv(bindings[i], &name);
      EXPECT_EQ(name, before[i]) << std::hex << bindings[i];
    }
  };
  EXPECT_TRUE(presentQuarters(*context, {60, 40}, obstruct, expectUnchanged));
  EXPECT_EQ(fault(*desktop, window), "");
}

TEST_F(EglWindows, comeAndGoWithoutTheContextLosingAnything) {
  const NativeWindow first = desktop->makeWindow({60, 40}), second = desktop->makeWindow({80, 30});
  const auto context = contextFor(first);
  GLuint texture = 0;
  EXPECT_TRUE(presentQuarters(*context, {60, 40}, [&] {
    constexpr std::uint32_t texel = 0x11223344;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, &texel);
    // In the middle of drawing.
    EXPECT_TRUE(context->setDrawable(nullptr));
  }));
  EXPECT_EQ(fault(*desktop, first, 0xFFFFFF), "");
  const auto copy = context->copyPresentedImage();
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->width(), 60U);

  EXPECT_TRUE(context->setDrawable(&second));
  context->presentAgain();
  EXPECT_EQ(fault(*desktop, second), "");
  EXPECT_TRUE(presentQuarters(*context, {60, 40}, [&] {
    EXPECT_TRUE(context->setDrawable(&first));
    std::uint32_t texel = 0;
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, &texel);
    EXPECT_EQ(texel, 0x11223344U);
  }));
  EXPECT_EQ(fault(*desktop, first), "");

  // A context that never knew the server, one of another visual, and one that is not there.
  const auto offscreen = openGL.makeContext({}, nullptr);
  EXPECT_FALSE(offscreen->setDrawable(&first));
  EXPECT_TRUE(presentQuarters(*offscreen, {8, 8}));
  NativeWindow wrong = second;
  wrong.visual += 1;
  EXPECT_FALSE(context->setDrawable(&wrong));
  EXPECT_TRUE(presentQuarters(*context, {20, 20}));
  EXPECT_EQ(desktop->picture(first).size.width, 60);
  EXPECT_EQ(fault(*desktop, first), "");
  desktop->destroy(second);
  EXPECT_FALSE(context->setDrawable(&second));
  EXPECT_THAT(takeTroubles(), IsEmpty());
  EXPECT_EQ(openGL.makeContext({}, &second), nullptr);
  EXPECT_THAT(takeTroubles(), ElementsAre(HasSubstr("it was destroyed")));
}

/// Presents for as long as it lives, on a thread of its own.
class Presenter {
 public:
  explicit Presenter(std::shared_ptr<NSOpenGLContext> context) : context_(std::move(context)) {}
  ~Presenter() {
    stopped_ = true;
    thread_.join();
  }
  /// Returns after this many further pictures.
  void await(int pictures) const {
    for (int due = presented_ + pictures, now = presented_; now < due; now = presented_) presented_.wait(now);
  }

 private:
  void run() {
#ifdef __SANITIZE_ADDRESS__
    // Mesa's software driver does not free the refusal that it gets for a window that has just gone.
    const __lsan::ScopedDisabler notOurs;
#endif
    while (!stopped_) {
      EXPECT_TRUE(presentQuarters(*context_, {30, 20}));
      presented_ += 1;
      presented_.notify_all();
    }
  }

  const std::shared_ptr<NSOpenGLContext> context_;
  std::atomic<bool> stopped_ = false;
  std::atomic<int> presented_ = 0;
  std::thread thread_{[this] { run(); }};
};

TEST_F(EglWindows, areDrawnInByAThreadEachAndTheirServersEndStopsOnlyTheShowing) {
  const NativeWindow window = desktop->makeWindow({60, 40}), other = desktop->makeWindow({20, 20});
  const auto left = contextFor(window), right = contextFor(other), idle = contextFor(window);
  {
    const Presenter leftThread(left), rightThread(right);
    leftThread.await(5);
    rightThread.await(5);
    EXPECT_EQ(fault(*desktop, window), "");
    EXPECT_EQ(fault(*desktop, other), "");
    desktop->kill();
    leftThread.await(20);
    rightThread.await(20);
  }
  idle->presentAgain();
  EXPECT_THAT(takeTroubles(), ElementsAre(HasSubstr("server is gone"), HasSubstr("server is gone"),
                                          HasSubstr("server is gone")));
  for (const auto& context : {left, right, idle}) {
    EXPECT_TRUE(context->cglContextObj());
    EXPECT_TRUE(presentQuarters(*context, {10, 10}));
    EXPECT_EQ(context->copyPresentedImage()->width(), 10U);
    EXPECT_FALSE(context->setDrawable(&other));
  }
  EXPECT_EQ(openGL.makeContext({}, &window), nullptr);
}

TEST_F(EglWindows, thatAreDestroyedByOthersAreLetGoOfWhileTheDrawingGoesOn) {
  for (int round = 0; round < 10; ++round) {
    const NativeWindow parent = desktop->makeWindow({60, 40});
    const NativeWindow child = desktop->makeWindow({60, 40}, parent.window);
    const auto context = contextFor(child);
    {
      const Presenter thread(context);
      thread.await(round);
      desktop->destroy(parent);
      thread.await(5);
    }
    EXPECT_THAT(takeTroubles(), ElementsAre(HasSubstr("it was destroyed")));
    const NativeWindow next = desktop->makeWindow({50, 50});
    EXPECT_TRUE(context->setDrawable(&next));
    context->presentAgain();
    EXPECT_EQ(fault(*desktop, next), "");
    desktop->destroy(next);
  }
}

TEST_F(EglWindows, ofAnyDepthShowThePicture) {
  for (const int depth : {16, 24, 30}) {
    Desktop other(depth);
    const NativeWindow window = other.makeWindow({60, 40});
    const auto context = contextFor(window);
    ASSERT_TRUE(context) << depth;
    EXPECT_TRUE(presentQuarters(*context, {60, 40}));
    EXPECT_EQ(fault(other, window), "") << depth;
  }
  // No configuration names this visual.
  const xcb_visualid_t translucent = desktop->visualOfDepth(32);
  const NativeWindow window = desktop->makeWindow({60, 40}, XCB_NONE, 32, translucent);
  const auto context = contextFor(window);
  ASSERT_TRUE(context);
  EXPECT_TRUE(presentQuarters(*context, {60, 40}));
  EXPECT_EQ(fault(*desktop, window), "");
  EXPECT_THAT(takeTroubles(), IsEmpty());
}

}  // namespace
}  // namespace QelUtilVideo
