#include "platform/linux/x11/X11EventPump.h"
#include "platform/linux/x11/windowserver/X11WindowServer.h"
#include "support/PrivateXServer.h"
#include "support/WindowPainter.h"

#include <gtest/gtest.h>
#include <xcb/res.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <limits>
#include <thread>

namespace QelUtilVideo {
namespace {

using qeltest::PaintedWindow;
using qeltest::PrivateXServer;
using qeltest::WindowPainter;
using Windows = std::vector<PaintedWindow>;

constexpr CGWindowListOption kOne = kCGWindowListOptionIncludingWindow;

CGRect rectOf(const PixelRect& rect) { return CGRectMake(rect.x, rect.y, rect.width, rect.height); }

testing::AssertionResult shows(const std::shared_ptr<CGImage>& image, const PixelRect& area,
                               const Windows& windows, bool isOpaque = false) {
  const auto bytes = image ? image->dataProvider()->bytes() : nullptr;
  if (!bytes) return testing::AssertionFailure() << "no picture";
  const CGImageLayout& layout = image->layout();
  if (layout.width != static_cast<std::size_t>(area.width) ||
      layout.height != static_cast<std::size_t>(area.height) ||
      bytes->size() < layout.bytesPerRow * layout.height) {
    return testing::AssertionFailure() << layout.width << " x " << layout.height;
  }
  return qeltest::shows(bytes->data(), layout.bytesPerRow, true, area, windows, isOpaque);
}

class PicturesOfWindows : public testing::Test {
 protected:
  void SetUp() override { QEL_REQUIRE_X_SERVER(); }
  void start(const PrivateXServer::Options& options = {}) {
    server_ = PrivateXServer::start(options);
    ASSERT_TRUE(server_);
    connection_ = X11Connection::open(server_->display().c_str());
    ASSERT_TRUE(connection_);
    pump_.emplace(connection_, loop_);
    windows_ = std::make_unique<X11WindowServer>(connection_, loop_);
    painter_.emplace(server_->display());
  }
  /// As the library probes windows.
  std::shared_ptr<CGImage> probe(const PaintedWindow& window,
                                 std::uint32_t options = kCGWindowImageShouldBeOpaque) {
    return windows_->CGWindowListCreateImage(CGRectNull, kOne, window.window, options);
  }
  std::shared_ptr<CGImage> compose(const CGRect& rect, const Windows& windows, std::uint32_t options = 0) {
    std::vector<CGWindowID> numbers;
    for (const PaintedWindow& window : windows) numbers.push_back(window.window);
    return windows_->CGWindowListCreateImageFromArray(rect, numbers, options);
  }
  [[nodiscard]] testing::AssertionResult composes(const PixelRect& area, const Windows& windows) {
    return shows(compose(rectOf(area), windows), area, windows);
  }
  /// One that manages windows keeps those on its list that are not shown.
  void manage(const Windows& windows) {
    std::vector<xcb_window_t> clients;
    for (const PaintedWindow& window : windows) clients.push_back(window.window);
    const X11Connection::Use use(*painter_->connection());
    const auto list = use.reply(xcb_intern_atom(use, 0, 16, "_NET_CLIENT_LIST"), xcb_intern_atom_reply);
    xcb_change_property(use, XCB_PROP_MODE_REPLACE, connection_->root(), list->atom, XCB_ATOM_WINDOW, 32,
                        static_cast<std::uint32_t>(clients.size()), clients.data());
  }
  /// What the server holds for our connection: pixmaps and what else has a number.
  std::pair<std::uint32_t, std::uint32_t> countResources() {
    const X11Connection::Use use(*painter_->connection());
    const auto reply = use.reply(xcb_res_query_client_resources(use, connection_->setup().resource_id_base),
                                 xcb_res_query_client_resources_reply);
    const auto pixmap = use.reply(xcb_intern_atom(use, 0, 6, "PIXMAP"), xcb_intern_atom_reply)->atom;
    std::pair<std::uint32_t, std::uint32_t> count{};
    for (auto types = xcb_res_query_client_resources_types_iterator(reply.get()); types.rem > 0;
         xcb_res_type_next(&types)) {
      (types.data->resource_type == pixmap ? count.first : count.second) += types.data->count;
    }
    return count;
  }

  TroubleHandler trouble_ = [](const std::string&) {};
  EventLoop loop_{trouble_};
  std::unique_ptr<PrivateXServer> server_;
  std::shared_ptr<X11Connection> connection_;
  std::optional<X11EventPump> pump_;
  std::unique_ptr<X11WindowServer> windows_;
  std::optional<WindowPainter> painter_;
};

/// The kinds of server on which pictures are the same.
class PicturesOnServer : public PicturesOfWindows,
                         public testing::WithParamInterface<std::pair<int, std::vector<std::string>>> {};

TEST_P(PicturesOnServer, showTheWindowsAskedForAndNothingElse) {
  start({.depth = GetParam().first, .arguments = GetParam().second});
  const auto back = painter_->show({20, 30, 200, 150}, 1);
  const auto menu = painter_->show({60, 50, 80, 120}, 2, 0, true, 3);
  const auto clear = painter_->show({90, 100, 100, 60}, 3, 32);
  auto round = painter_->show({10, 100, 60, 60}, 4);
  painter_->shape(round, {{20, 0, 20, 60}, {0, 20, 60, 20}});
  const auto partlyOff = painter_->show({250, -40, 150, 100}, 5);
  const auto foreign = painter_->show({0, 0, 320, 240}, 6);
  const Windows all{back, menu, clear, round, partlyOff};
  // Redirecting begins with the probe, and what was hidden is painted again.
  for (const PaintedWindow& window : all) ASSERT_TRUE(probe(window));
  for (const PaintedWindow& window : all) painter_->paint(window);

  for (const PaintedWindow& window : all) {
    EXPECT_TRUE(shows(probe(window), window.place, {window}, true));
    EXPECT_TRUE(shows(probe(window, kCGWindowImageDefault), window.place, {window}));
    EXPECT_TRUE(composes(window.place, {window}));
    EXPECT_TRUE(shows(compose(rectOf(window.place), {window}, kCGWindowImageShouldBeOpaque), window.place,
                      {window}, true));
  }
  for (const PixelRect& area : {back.place, PixelRect{-30, -50, 500, 400}, PixelRect{61, 99, 40, 33}}) {
    EXPECT_TRUE(composes(area, all));
    EXPECT_TRUE(composes(area, {back, menu, clear}));
    EXPECT_TRUE(composes(area, {clear, partlyOff}));
    EXPECT_TRUE(shows(compose(rectOf(area), all, kCGWindowImageShouldBeOpaque), area, all, true));
  }
  const PixelRect together{10, -40, 390, 220};
  EXPECT_TRUE(shows(compose(CGRectNull, {round, back, clear, menu, back, partlyOff}), together, all));
  EXPECT_TRUE(shows(windows_->CGWindowListCreateImage(
                        CGRectNull, kOne | kCGWindowListOptionOnScreenAboveWindow, round.window, 0),
                    {0, -40, 400, 280}, {round, partlyOff, foreign}));
}

INSTANTIATE_TEST_SUITE_P(Kinds, PicturesOnServer,
                         testing::Values(std::pair(24, std::vector<std::string>()),
                                         std::pair(24, std::vector<std::string>{"-extension", "MIT-SHM"}),
                                         std::pair(16, std::vector<std::string>()),
                                         std::pair(30, std::vector<std::string>())));

TEST_F(PicturesOfWindows, followTheirWindows) {
  start();
  auto window = painter_->show({20, 30, 100, 80}, 1);
  const auto early = probe(window), promised = probe(window), late = probe(window);
  painter_->place(window, {70, 60, 100, 80});
  EXPECT_TRUE(shows(early, window.place, {window}, true)) << "moved before its bytes were asked for";
  EXPECT_EQ(early->dataProvider()->bytes(), early->dataProvider()->bytes());
  painter_->place(window, {-10, 60, 140, 90});
  EXPECT_EQ(promised->dataProvider()->bytes(), nullptr) << "no longer of the size that was promised";
  EXPECT_TRUE(composes(window.place, {window}));

  manage({window});
  painter_->unmap(window);
  EXPECT_TRUE(composes(window.place, {window})) << "its last picture";
  EXPECT_TRUE(shows(probe(window), window.place, {window}, true));
  painter_->map(window);
  const auto before = std::exchange(window.seed, 9);
  painter_->paint(window);
  EXPECT_TRUE(probe(window));
  painter_->unmap(window);
  EXPECT_TRUE(composes(window.place, {window})) << "not the picture of " << before;
  painter_->place(window, {0, 0, 50, 50});
  EXPECT_FALSE(probe(window));
  EXPECT_FALSE(compose(CGRectNull, {window}));

  painter_->map(window);
  EXPECT_TRUE(probe(window));
  const auto other = painter_->show({0, 0, 30, 30}, 2);
  const auto kept = probe(other);
  painter_->destroy(window);
  EXPECT_EQ(late->dataProvider()->bytes(), nullptr);
  EXPECT_TRUE(shows(compose(CGRectNull, {window, other}), other.place, {other}));
  EXPECT_FALSE(compose(CGRectNull, {window}));
  windows_.reset();
  EXPECT_EQ(kept->dataProvider()->bytes(), nullptr) << "outlives the platform";
}

TEST_F(PicturesOfWindows, areNotOfRectanglesThatNoPictureCanHave) {
  start();
  const auto window = painter_->show({0, 0, 40, 40}, 1);
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const CGRect& rect :
       {CGRectMake(0, 0, 60000, 10), CGRectMake(0, 0, 32767, 32767), CGRectMake(0.5, 0.5, 0, 10),
        CGRectMake(kNan, 0, 10, 10), CGRectMake(0, 0, kNan, 10), CGRectMake(0, -kInfinity, 10, kInfinity),
        CGRectMake(1e300, 0, 10, 10), CGRectMake(15, 15, -20, -20), CGRectMake(0, 0, 1e300, 1e300)}) {
    EXPECT_FALSE(compose(rect, {window}));
    EXPECT_FALSE(windows_->CGWindowListCreateImage(rect, kOne, window.window, 0));
  }
  EXPECT_TRUE(composes({-5, -5, 20, 20}, {window}));
  EXPECT_FALSE(compose(CGRectNull, {}));
  EXPECT_FALSE(windows_->CGWindowListCreateImageFromArray(CGRectNull, std::array{connection_->root()}, 0));
}

TEST_F(PicturesOfWindows, ofIndexedColorsSaySoAndHaveNoBytes) {
  start({.depth = 8});
  const auto window = painter_->show({0, 0, 40, 40}, 1);
  const auto image = probe(window);
  ASSERT_TRUE(image);
  EXPECT_NE(image->layout().colorSpaceModel, CGColorSpaceModel::rgb);
  EXPECT_EQ(image->layout().bitsPerPixel, 8U);
  EXPECT_EQ(image->dataProvider()->bytes(), nullptr);
  EXPECT_FALSE(compose(CGRectNull, {window}));
}

TEST_F(PicturesOfWindows, withoutCompositeAreWhatTheScreenShows) {
  start({.arguments = {"-extension", "Composite"}});
  auto window = painter_->show({-20, 30, 200, 150}, 1);
  painter_->shape(window, {{0, 0, 150, 150}});
  const auto above = painter_->show({60, 50, 300, 40}, 2);
  auto seen = above;
  seen.shape = {{0, 0, 70, 40}};  // where the window lies below it
  EXPECT_TRUE(shows(compose(CGRectNull, {window}), window.place, [&] {
    Windows onScreen{window, seen};
    onScreen[0].shape = {{20, 0, 130, 150}};  // what is off the screen is nowhere
    return onScreen;
  }()));
  EXPECT_TRUE(probe(window));
  painter_->unmap(window);
  EXPECT_FALSE(probe(window));
}

TEST_F(PicturesOfWindows, costNoMoreTheLongerTheyAreTaken) {
  start();
  auto window = painter_->show({20, 30, 200, 150}, 1);
  const auto menu = painter_->show({60, 50, 80, 120}, 2, 32, true);
  const auto countMemory = [] {
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);)
      count += line.find("memfd:QelUtil") != std::string::npos;
    return count;
  };
  constexpr int kMostSegments = 8;
  std::pair<std::uint32_t, std::uint32_t> settled;
  for (int i = 0; i < 1000; ++i) {
    if (i % 10 == 5) painter_->unmap(menu);
    if (i % 10 == 9) painter_->map(menu);
    if (i % 7 == 0) painter_->place(window, {i % 50, 30, 200 + i % 3, 150});
    // Some are only listed, and never asked for.
    const auto brief = painter_->show({0, 0, 30, 30}, 3);
    ASSERT_TRUE(probe(brief));
    painter_->destroy(brief);
    ASSERT_TRUE(probe(window));
    ASSERT_TRUE(compose(rectOf(window.place), {window, menu}));
    if (i == 99) settled = countResources();
  }
  const auto end = countResources();
  EXPECT_LE(end.first, 3U) << "pictures";
  EXPECT_LE(end.second, settled.second + 4) << "anything else";
  EXPECT_LE(countMemory(), kMostSegments);

  // Nobody asks, and other programs go on.
  for (int turn = 0; turn < 1000 && countResources().first > 0; ++turn) {
    for (int i = 0; i < 100; ++i) painter_->setTitle(window, std::to_string(i));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    loop_.dispatchPending();
  }
  EXPECT_EQ(countResources().first, 0U);
  EXPECT_TRUE(composes(window.place, {window}));
}

TEST_F(PicturesOfWindows, areNeverBlankOfAWindowThatNeverRests) {
  start();
  const auto window = painter_->show({20, 30, 200, 150}, 1);
  ASSERT_TRUE(probe(window));
  std::atomic<bool> isOver = false;
  std::thread restless([&] {
    const WindowPainter painter(server_->display());
    auto moved = window;
    for (int i = 0; !isOver; ++i) painter.place(moved, {20, 30, 200 + i % 50, 150 + i % 30});
  });
  int blank = 0;
  for (int i = 0; i < 1000; ++i) {
    const auto image = compose(CGRectMake(30, 40, 100, 80), {window});
    const auto bytes = image ? image->dataProvider()->bytes() : nullptr;
    const auto isNothing = [](std::byte value) { return value == std::byte{}; };
    blank += !bytes || std::all_of(bytes->data(), bytes->data() + 400, isNothing);
  }
  EXPECT_EQ(blank, 0);
  isOver = true;
  restless.join();
}

TEST_F(PicturesOfWindows, areNotTakenOfWhatTheServerCannotKeepOrWhatHidesBehindAnother) {
  start();
  const auto front = painter_->show({0, 0, 100, 80}, 1), back = painter_->show({0, 0, 100, 80}, 2);
  const auto frame = painter_->show({20, 30, 120, 100}, 3);
  const auto vast = painter_->show({0, 0, 40000, 100}, 4), inVast = painter_->show({0, 0, 100, 80}, 5);
  {
    const X11Connection::Use use(*painter_->connection());
    xcb_reparent_window(use, front.window, frame.window, 10, 10);
    xcb_reparent_window(use, back.window, frame.window, 10, 10);
    xcb_reparent_window(use, inVast.window, vast.window, 10, 10);
  }
  manage({front, back, inVast});
  painter_->unmap(front);
  EXPECT_FALSE(probe(front));
  ASSERT_TRUE(probe(back));
  EXPECT_FALSE(probe(front)) << "it lies in a picture of the other one";
  EXPECT_FALSE(compose(CGRectMake(30, 40, 100, 80), {front}));
  painter_->unmap(frame);
  EXPECT_TRUE(probe(back)) << "its last picture";
  EXPECT_FALSE(probe(front));

  EXPECT_FALSE(probe(inVast));
  EXPECT_FALSE(compose(CGRectMake(0, 0, 100, 80), {inVast}));
  EXPECT_TRUE(windows_->CGWindowListCopyWindowInfo(kCGWindowListOptionOnScreenOnly, 0)) << "it lives";
}

TEST_F(PicturesOfWindows, areNotThoseOfAnEarlierWindowOfTheSameNumber) {
  start();
  auto window = painter_->show({20, 30, 100, 80}, 1);
  manage({window});
  ASSERT_TRUE(probe(window));
  painter_->destroy(window);
  {
    const X11Connection::Use use(*painter_->connection());
    xcb_create_window(use, XCB_COPY_FROM_PARENT, window.window, connection_->root(), 20, 30, 100, 80, 0,
                      XCB_WINDOW_CLASS_COPY_FROM_PARENT, XCB_COPY_FROM_PARENT, 0, nullptr);
  }
  manage({window});
  painter_->sync();
  EXPECT_FALSE(probe(window));
  EXPECT_FALSE(compose(CGRectNull, {window}));
  window.seed = 2;
  painter_->paint(window);
  painter_->map(window);
  EXPECT_TRUE(shows(probe(window), window.place, {window}, true)) << "whole, as the new one is kept too";
}

TEST_F(PicturesOfWindows, leaveOutWhatNobodyConverts) {
  start({.depth = 8, .arguments = {"-cc", "4"}});
  const auto coarse = painter_->show({0, 0, 100, 80}, 1), fine = painter_->show({20, 30, 60, 40}, 2, 32);
  EXPECT_FALSE(probe(coarse));
  EXPECT_FALSE(compose(CGRectNull, {coarse}));
  EXPECT_TRUE(probe(fine));
  painter_->paint(fine);
  EXPECT_TRUE(shows(compose(rectOf(coarse.place), {coarse, fine}), coarse.place, {fine}));
}

TEST_F(PicturesOfWindows, surviveTheLossOfTheServer) {
  for (int round = 0; round < 5; ++round) {
    start();
    const auto window = painter_->show({0, 0, 200, 150}, 1);
    const auto promised = probe(window), had = compose(CGRectNull, {window});
    std::atomic<int> pictures = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
      threads.emplace_back([&] {
        while (probe(window) && compose(rectOf(window.place), {window})) ++pictures;
      });
    }
    while (pictures < 10) std::this_thread::yield();
    server_->kill();
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(promised->dataProvider()->bytes(), nullptr);
    EXPECT_TRUE(shows(had, window.place, {window}));
    painter_.reset();
    windows_.reset();
    pump_.reset();
  }
}

}  // namespace
}  // namespace QelUtilVideo
