#include "capture/windowlist/PixelBufferMaking.h"
#include "platform/NotificationCenterImpl.h"
#include "platform/Platform.h"
#include "platform/linux/x11/X11Cursor.h"
#include "platform/linux/x11/X11Displays.h"
#include "platform/linux/x11/X11EventPump.h"
#include "support/PrivateXServer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/uio.h>
#include <xcb/xcbext.h>

#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <random>
#include <thread>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;
using namespace std::chrono_literals;

/// Another program on the test's server, which draws and moves things.
class Painter {
 public:
  explicit Painter(const std::string& display) : connection_(X11Connection::open(display.c_str())) {}
  xcb_connection_t* get() const { return X11Connection::Use(*connection_); }
  xcb_window_t root() const { return connection_->root(); }

  /// A window of one colour on top of everything.
  xcb_window_t fill(std::int16_t x, std::int16_t y, std::uint16_t width, std::uint16_t height,
                    std::uint32_t pixel) const {
    const xcb_window_t window = xcb_generate_id(get());
    const std::array<std::uint32_t, 2> values{pixel, 1};
    xcb_create_window(get(), XCB_COPY_FROM_PARENT, window, root(), x, y, width, height, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
    xcb_map_window(get(), window);
    sync();
    return window;
  }
  /// Draws the same noise each time over the root window, which has a visual of true colour. The colours, row
  /// by row: blue, green, red, in 8 bits each.
  std::vector<std::array<int, 3>> drawNoise(std::uint16_t width, std::uint16_t height) const {
    const xcb_screen_t& screen = connection_->screen();
    const xcb_visualtype_t* visual = connection_->visual(screen.root_visual);
    const std::array<std::uint32_t, 3> masks{visual->blue_mask, visual->green_mask, visual->red_mask};
    const std::size_t bytesPerPixel = screen.root_depth > 16 ? 4 : 2;
    const std::size_t bytesPerRow = (width * bytesPerPixel + 3) / 4 * 4;
    std::vector<std::uint8_t> pixels(bytesPerRow * height);
    std::vector<std::array<int, 3>> colors;
    std::mt19937 noise(1);
    for (std::size_t y = 0; y < height; ++y) {
      for (std::size_t x = 0; x < width; ++x) {
        std::uint32_t pixel = 0;
        std::array<int, 3>& color = colors.emplace_back();
        for (std::size_t i = 0; i < masks.size(); ++i) {
          const int shift = std::countr_zero(masks[i]);
          const std::uint32_t most = masks[i] >> shift, value = static_cast<std::uint32_t>(noise()) & most;
          pixel |= value << shift;
          color[i] = static_cast<int>(std::lround(255.0 * value / most));
        }
        std::memcpy(pixels.data() + y * bytesPerRow + x * bytesPerPixel, &pixel, bytesPerPixel);
      }
    }
    const xcb_gcontext_t gc = xcb_generate_id(get());
    xcb_create_gc(get(), gc, root(), 0, nullptr);
    xcb_put_image(get(), XCB_IMAGE_FORMAT_Z_PIXMAP, root(), gc, width, height, 0, 0, 0, screen.root_depth,
                  static_cast<std::uint32_t>(pixels.size()), pixels.data());
    sync();
    return colors;
  }
  /// A black cursor of that size over the window.
  void setCursor(xcb_window_t window, std::uint16_t side, std::uint16_t hotX, std::uint16_t hotY) const {
    const xcb_pixmap_t shape = xcb_generate_id(get());
    const xcb_gcontext_t gc = xcb_generate_id(get());
    const xcb_cursor_t cursor = xcb_generate_id(get());
    const std::uint32_t one = 1;
    const xcb_rectangle_t all{0, 0, side, side};
    xcb_create_pixmap(get(), 1, shape, root(), side, side);
    xcb_create_gc(get(), gc, shape, XCB_GC_FOREGROUND, &one);
    xcb_poly_fill_rectangle(get(), shape, gc, 1, &all);
    xcb_create_cursor(get(), cursor, shape, shape, 0, 0, 0, 0, 0, 0, hotX, hotY);
    xcb_change_window_attributes(get(), window, XCB_CW_CURSOR, &cursor);
    sync();
  }
  void movePointer(std::int16_t x, std::int16_t y) const {
    xcb_warp_pointer(get(), XCB_NONE, root(), 0, 0, 0, 0, x, y);
    sync();
  }
  void setEdid(xcb_randr_output_t output, const std::array<std::uint8_t, 128>& edid) const {
    xcb_randr_change_output_property(get(), output, connection_->edidAtom(), XCB_ATOM_INTEGER, 8,
                                     XCB_PROP_MODE_REPLACE, 128, edid.data());
    sync();
  }
  /// Defines a monitor that no output shows.
  void addMonitor(std::string_view name, const xcb_rectangle_t& place) const {
    const X11Connection::Use use(*connection_);
    const auto atom = use.reply(xcb_intern_atom(use, 0, static_cast<std::uint16_t>(name.size()), name.data()),
                                xcb_intern_atom_reply);
    struct {
      xcb_randr_set_monitor_request_t request{};
      xcb_randr_monitor_info_t info{};
    } message;
    message.request.window = root();
    message.info.name = atom->atom;
    message.info.x = place.x;
    message.info.y = place.y;
    message.info.width = place.width;
    message.info.height = place.height;
    // Not xcb_randr_set_monitor: libxcb 1.15 sends a wrong length with it.
    const xcb_protocol_request_t request{1, &xcb_randr_id, XCB_RANDR_SET_MONITOR, 1};
    std::array<iovec, 3> parts{};  // the first two are libxcb's own
    parts[2] = {&message, sizeof message};
    xcb_send_request(use, 0, parts.data() + 2, &request);
    sync();
  }
  /// Waits until the server has done everything.
  void sync() const {
    const X11Connection::Use use(*connection_);
    (void)use.reply(xcb_get_input_focus(use), xcb_get_input_focus_reply);
  }

 private:
  std::shared_ptr<X11Connection> connection_;
};

/// Blue, green, red.
std::array<int, 3> pixelAt(CGImage& image, std::size_t x, std::size_t y) {
  const std::byte* pixel = image.dataProvider()->bytes()->data() + y * image.layout().bytesPerRow + 4 * x;
  return {std::to_integer<int>(pixel[0]), std::to_integer<int>(pixel[1]), std::to_integer<int>(pixel[2])};
}

constexpr std::array<int, 3> kBlue{255, 0, 0};
constexpr std::array<int, 3> kRed{0, 0, 255};

/// One server, and the displays and cursor on it, with a main loop that the test turns.
class DisplaysOnXvfb : public testing::Test {
 protected:
  void SetUp() override { QEL_REQUIRE_X_SERVER(); }

  void startServer(const PrivateXServer::Options& options = {}) {
    server_ = PrivateXServer::start(options);
    ASSERT_TRUE(server_);
    connection_ = X11Connection::open(server_->display().c_str());
    ASSERT_TRUE(connection_);
    pump_.emplace(connection_, loop_);
    displays_ = std::make_unique<X11Displays>(connection_, loop_, center_, trouble_);
    center_.addObserver(NSApplicationDidChangeScreenParametersNotification, nullptr,
                        [this](const NSNotification&) { ++notifications_; });
    painter_.emplace(server_->display());
  }

  void serveMainLoop(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
      pollfd waiting{loop_.fileDescriptor(), POLLIN, 0};
      if (::poll(&waiting, 1, 10) > 0) {
        loop_.dispatchPending();
        ++turns_;
      }
    }
  }

  /// The server has sent what it had to tell about everything up to now.
  void receiveEvents() { (void)X11Cursor(connection_).CGEventGetLocation(); }

  CGDirectDisplayID mainDisplay() {
    const auto screens = displays_->screens();
    return screens.empty() ? 0 : *screens.front()->deviceDescription().get<std::uint32_t>("NSScreenNumber");
  }

  TroubleHandler trouble_ = [](const std::string&) {};
  EventLoop loop_{trouble_};
  NotificationCenterImpl center_{trouble_};
  std::unique_ptr<PrivateXServer> server_;
  std::shared_ptr<X11Connection> connection_;
  std::optional<X11EventPump> pump_;
  std::unique_ptr<X11Displays> displays_;
  std::optional<Painter> painter_;
  int notifications_ = 0;
  int turns_ = 0;
};

TEST_F(DisplaysOnXvfb, theScreenIsListedWithItsPlaceAndWithoutAnIdentity) {
  startServer();
  const auto screens = displays_->screens();
  ASSERT_EQ(screens.size(), 1U);
  EXPECT_FALSE(screens[0]->localizedName().empty());
  EXPECT_EQ(screens[0]->frame(), CGRectMake(0, 0, 320, 240));
  EXPECT_EQ(displays_->CGDisplayBounds(mainDisplay()), CGRectMake(0, 0, 320, 240));
  EXPECT_EQ(displays_->CGDisplayVendorNumber(mainDisplay()), 0x756e6b6eU);
  EXPECT_EQ(displays_->CGDisplaySerialNumber(mainDisplay()), 0U);
  EXPECT_EQ(displays_->displayInfoDictionaries()->size(), 0U);
  EXPECT_EQ(displays_->screens(), screens);
  EXPECT_EQ(displays_->CGDisplayBounds(12345), CGRectZero);
  EXPECT_EQ(displays_->CGDisplayCreateImage(12345), nullptr);
}

class DisplaysOfDepth : public DisplaysOnXvfb, public testing::WithParamInterface<std::pair<int, bool>> {};

TEST_P(DisplaysOfDepth, everyPixelOfAFrameIsAsDrawn) {
  const auto& [depth, sharedMemory] = GetParam();
  PrivateXServer::Options options{.width = 333, .height = 200, .depth = depth};
  if (!sharedMemory) options.arguments = {"-extension", "MIT-SHM"};
  startServer(options);
  EXPECT_EQ(connection_->hasSharedMemory(), sharedMemory);
  const std::vector<std::array<int, 3>> drawn = painter_->drawNoise(333, 200);
  std::shared_ptr<CGImage> image = displays_->CGDisplayCreateImage(mainDisplay());
  ASSERT_TRUE(image);
  EXPECT_EQ(image->alphaInfo(), depth == 24 ? CGImageAlphaInfo::noneSkipFirst  // the server's own bytes
                                            : CGImageAlphaInfo::premultipliedFirst);
  const auto platform = makePlatform();
  const CVPixelBufferRef frame = windowlist::makePixelBuffer(*platform, std::move(image), CGRectZero);
  ASSERT_TRUE(frame);
  EXPECT_EQ(CVPixelBufferGetPixelFormatType(*frame), kCVPixelFormatType_32BGRA);
  ASSERT_EQ(CVPixelBufferGetWidth(*frame), 333U);
  ASSERT_EQ(CVPixelBufferGetHeight(*frame), 200U);
  std::size_t different = 0;
  for (std::size_t pixel = 0; pixel < drawn.size(); ++pixel) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddress(*frame)) +
                        pixel / 333 * CVPixelBufferGetBytesPerRow(*frame) + pixel % 333 * 4;
    const std::array<int, 3> shown{bytes[0], bytes[1], bytes[2]};
    different += shown != drawn[pixel] || (depth != 24 && bytes[3] != 255);
  }
  EXPECT_EQ(different, 0U);
}

INSTANTIATE_TEST_SUITE_P(Depths, DisplaysOfDepth,
                         testing::Values(std::pair(16, true), std::pair(24, true), std::pair(30, true),
                                         std::pair(24, false)));

TEST_F(DisplaysOnXvfb, anIndexedScreenGivesItsOwnPixels) {
  startServer({.depth = 8});
  const auto image = displays_->CGDisplayCreateImage(mainDisplay());
  ASSERT_TRUE(image);
  EXPECT_EQ(image->layout().colorSpaceModel, CGColorSpaceModel::indexed);
  EXPECT_EQ(image->layout().bitsPerPixel, 8U);
}

TEST_F(DisplaysOnXvfb, anImageKeepsItsBytesWhateverHappensAndMemoryIsUsedAgain) {
  startServer();
  painter_->fill(0, 0, 320, 240, 0xFF0000);
  std::shared_ptr<CGImage> red = displays_->CGDisplayCreateImage(mainDisplay());
  painter_->fill(0, 0, 320, 240, 0x0000FF);
  std::shared_ptr<CGImage> blue = displays_->CGDisplayCreateImage(mainDisplay());
  EXPECT_EQ(pixelAt(*red, 100, 100), kRed);
  EXPECT_EQ(pixelAt(*blue, 100, 100), kBlue);

  const std::byte* memory = blue->dataProvider()->bytes()->data();
  std::thread([dropped = std::move(blue)]() mutable { dropped.reset(); }).join();
  blue = displays_->CGDisplayCreateImage(mainDisplay());
  EXPECT_EQ(blue->dataProvider()->bytes()->data(), memory);

  displays_.reset();
  connection_.reset();
  server_->kill();
  EXPECT_EQ(pixelAt(*red, 100, 100), kRed);
  EXPECT_EQ(pixelAt(*blue, 100, 100), kBlue);
}

TEST_F(DisplaysOnXvfb, aBurstOfChangesIsPostedOnce) {
  startServer();
  const auto before = displays_->screens();
  painter_->addMonitor("Left", {0, 0, 100, 50});
  painter_->addMonitor("Right", {100, 40, 200, 200});
  receiveEvents();
  EXPECT_EQ(displays_->screens().size(), 3U);  // the list does not wait for the main loop
  serveMainLoop(400ms);
  EXPECT_EQ(notifications_, 1);
  for (const auto& screen : displays_->screens()) {
    if (screen->localizedName() != "Right") continue;
    const auto id = *screen->deviceDescription().get<std::uint32_t>("NSScreenNumber");
    EXPECT_GE(id, 0x80000000U);
    EXPECT_EQ(displays_->CGDisplayBounds(id), CGRectMake(100, 40, 200, 200));
    EXPECT_EQ(screen->frame().origin.y, displays_->screens().front()->frame().size.height - 240);
    ASSERT_TRUE(displays_->CGDisplayCreateImage(id));
    EXPECT_EQ(displays_->CGDisplayCreateImage(id)->width(), 200U);
  }
  serveMainLoop(300ms);
  EXPECT_EQ(notifications_, 1);
}

TEST_F(DisplaysOnXvfb, anEdidGivesTheDisplayItsNameAndIdentity) {
  startServer();
  std::array<std::uint8_t, 128> edid{0, 255, 255, 255, 255, 255, 255, 0, 0x04, 0x43, 0x34, 0x12, 9, 0, 0, 0};
  constexpr std::string_view kName("QEL 27\n");
  edid[57] = 0xFC;
  std::copy(kName.begin(), kName.end(), edid.begin() + 59);
  edid[127] = static_cast<std::uint8_t>(-std::accumulate(edid.begin(), edid.end(), 0));
  painter_->setEdid(mainDisplay(), edid);
  receiveEvents();

  EXPECT_EQ(displays_->screens().front()->localizedName(), "QEL 27");
  EXPECT_EQ(displays_->CGDisplayVendorNumber(mainDisplay()), 0x0443U);
  EXPECT_EQ(displays_->CGDisplayModelNumber(mainDisplay()), 0x1234U);
  EXPECT_EQ(displays_->CGDisplaySerialNumber(mainDisplay()), 9U);
  const auto services = displays_->displayInfoDictionaries();
  ASSERT_EQ(services->size(), 1U);
  const Dictionary& info = *services->front();
  EXPECT_EQ(*info.get<std::uint32_t>("DisplaySerialNumber"), 9U);
  EXPECT_EQ(*info.get<Dictionary>("DisplayProductName")->get<std::string>("en_US"), "QEL 27");
}

TEST_F(DisplaysOnXvfb, aNameThatIsNotUtf8ComesOutAsUtf8) {
  startServer();
  painter_->addMonitor("B\xE4r", {0, 0, 100, 50});
  receiveEvents();
  const auto screens = displays_->screens();
  EXPECT_TRUE(
      std::ranges::any_of(screens, [](const auto& screen) { return screen->localizedName() == "B\uFFFDr"; }));
}

TEST_F(DisplaysOnXvfb, theLossOfTheServerIsOneChangeToNoScreens) {
  startServer();
  const CGDirectDisplayID display = mainDisplay();
  std::thread killer([this] {
    std::this_thread::sleep_for(30ms);
    server_->kill();
  });
  X11Cursor cursor(connection_);
  while (displays_->CGDisplayCreateImage(display)) (void)cursor.currentSystemCursor();
  killer.join();
  EXPECT_EQ(displays_->CGDisplayCreateImage(display), nullptr);
  EXPECT_EQ(displays_->screens().size(), 0U);
  EXPECT_EQ(displays_->CGDisplayBounds(display), CGRectZero);
  EXPECT_FALSE(displays_->displayInfoDictionaries().has_value());
  EXPECT_EQ(cursor.CGEventGetLocation(), std::nullopt);
  EXPECT_FALSE(cursor.currentSystemCursor());
  serveMainLoop(300ms);
  EXPECT_EQ(notifications_, 1);
  turns_ = 0;
  serveMainLoop(100ms);
  EXPECT_EQ(turns_, 0) << "the main loop does not rest";
}

TEST_F(DisplaysOnXvfb, theLossOfTheServerIsNoticedByAnIdleHost) {
  startServer();
  server_->kill();
  serveMainLoop(300ms);
  EXPECT_EQ(notifications_, 1);
}

TEST_F(DisplaysOnXvfb, theCursorHasItsPlaceItsHotSpotAndOnePictureForEachShape) {
  startServer();
  X11Cursor cursor(connection_);
  const xcb_window_t window = painter_->fill(0, 0, 320, 240, 0xFFFFFF);
  painter_->setCursor(window, 8, 3, 5);
  painter_->movePointer(50, 60);
  EXPECT_EQ(cursor.CGEventGetLocation(), (CGPoint{50, 60}));
  const std::optional<NSCursor> first = cursor.currentSystemCursor();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->image->size(), (CGSize{8, 8}));
  EXPECT_EQ(first->hotSpot, (CGPoint{3, 5}));
  EXPECT_EQ(first->image->image()->dataProvider()->bytes()->data()[3], std::byte{255});

  painter_->movePointer(70, 80);
  EXPECT_EQ(cursor.CGEventGetLocation(), (CGPoint{70, 80}));
  EXPECT_EQ(cursor.currentSystemCursor()->image, first->image);
  painter_->setCursor(window, 16, 0, 0);
  EXPECT_EQ(cursor.currentSystemCursor()->image->size(), (CGSize{16, 16}));
}

TEST_F(DisplaysOnXvfb, aFrameShowsTheCursorWithItsHotSpotAtThePointer) {
  startServer();
  painter_->setCursor(painter_->fill(0, 0, 320, 240, 0xFF0000), 8, 3, 5);
  painter_->movePointer(50, 60);
  ::setenv("DISPLAY", server_->display().c_str(), 1);
  const std::unique_ptr<Platform> machine = makePlatform();
  Displays& displays = machine->displays();
  const CVPixelBufferRef frame = windowlist::makePixelBuffer(
      *machine, displays.CGDisplayCreateImage(mainDisplay()), displays.CGDisplayBounds(mainDisplay()));
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->format(), kCVPixelFormatType_32BGRA);
  const auto redAt = [&](std::size_t x, std::size_t y) {
    return CVPixelBufferGetBaseAddress(*frame)[y * CVPixelBufferGetBytesPerRow(*frame) + 4 * x + 2];
  };
  for (std::size_t y = 50; y < 70; ++y) {
    for (std::size_t x = 40; x < 60; ++x) {
      const bool isCursor = x >= 47 && x < 55 && y >= 55 && y < 63;
      ASSERT_EQ(redAt(x, y) == std::byte{0}, isCursor) << x << ", " << y;
    }
  }
}

TEST_F(DisplaysOnXvfb, manyThreadsMayAskAtOnce) {
  startServer();
  const CGDirectDisplayID display = mainDisplay();
  X11Cursor cursor(connection_);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 30; ++round) {
        EXPECT_TRUE(displays_->CGDisplayCreateImage(display));
        EXPECT_TRUE(cursor.currentSystemCursor());
        EXPECT_FALSE(displays_->screens().empty());
      }
    });
  }
  painter_->addMonitor("Another", {0, 0, 10, 10});
  serveMainLoop(300ms);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(notifications_, 1);
}

TEST(DisplaysWithoutServer, thereAreNone) {
  EXPECT_EQ(X11Connection::open("nowhere.invalid:99"), nullptr);
  const TroubleHandler trouble;
  EventLoop loop(trouble);
  NotificationCenterImpl center(trouble);
  X11Displays displays(nullptr, loop, center, trouble);
  X11Cursor cursor(nullptr);
  EXPECT_TRUE(displays.screens().empty());
  EXPECT_EQ(displays.CGDisplayCreateImage(1), nullptr);
  EXPECT_FALSE(displays.displayInfoDictionaries().has_value());
  EXPECT_EQ(cursor.CGEventGetLocation(), std::nullopt);
  EXPECT_FALSE(cursor.currentSystemCursor());
}

}  // namespace
}  // namespace QelUtilVideo
