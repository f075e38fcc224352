#include "platform/linux/x11/X11EventPump.h"
#include "platform/linux/x11/X11Views.h"
#include "support/PrivateXServer.h"
#include "support/XProgram.h"

#include <QelUtilVideo/platform/NSEvent.h>

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <functional>
#include <thread>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using namespace std::chrono_literals;

constexpr std::uint32_t kBlack = 0;
constexpr std::uint32_t kRed = 0xFF0000;
constexpr std::uint32_t kBlue = 0x0000FF;

/// What it was told, in words; and what the test does then.
struct Told {
  std::vector<std::string> words;
  std::function<void()> then = [] {};

  void note(const std::string& word) {
    words.push_back(word);
    then();
  }
  [[nodiscard]] bool has(const std::string& word) const {
    return std::find(words.begin(), words.end(), word) != words.end();
  }
  std::vector<std::string> take() { return std::exchange(words, {}); }
};

struct Client final : Told, WindowClient {
  void windowChanged() override { note("changed"); }
  void windowCloseRequested() override { note("close"); }
  void windowGone() override { note("gone"); }
  void windowKeyDown(const NSEvent& event) override {
    note(event.keyName + " " + event.characters + " " + std::to_string(event.modifierFlags) +
         (event.isARepeat ? " again" : ""));
  }
};

struct SurfaceClient final : Told, ViewSurfaceClient {
  void surfaceExposed() override { note("exposed"); }
  void surfaceOccluded(bool occluded) override { note(occluded ? "occluded" : "seen"); }
  void surfaceGone() override { note("surface gone"); }
};

/// A server, our windows on it, and a main loop that the test turns.
class Windows : public testing::Test {
 protected:
  void SetUp() override {
    QEL_REQUIRE_X_SERVER();
    start({});
  }
  void start(const PrivateXServer::Options& options) {
    views_.reset();
    pump_.reset();
    other_.reset();
    server_ = PrivateXServer::start(options);
    ASSERT_TRUE(server_);
    connection_ = X11Connection::open(server_->display().c_str());
    ASSERT_TRUE(connection_);
    pump_ = std::make_unique<X11EventPump>(connection_, loop_);
    views_ = std::make_unique<X11Views>(connection_, loop_, trouble_);
    other_ = std::make_unique<XProgram>(server_->display());
  }

  /// Serves the main loop until all that the server has said so far is dealt with.
  void settle() {
    for (int turn = 0; turn < 4; ++turn) {
      settleConnection();
      loop_.dispatchPending();
    }
  }
  /// Waits until the server has done what we asked for: it serves its clients in an order of its own. Any
  /// thread.
  void settleConnection() {
    const X11Connection::Use use(*connection_);
    (void)use.reply(xcb_get_input_focus(use), xcb_get_input_focus_reply);
  }
  /// Serves the main loop until it is so, at most ten seconds.
  [[nodiscard]] bool serveUntil(const std::function<bool()>& isSo) {
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!isSo() && std::chrono::steady_clock::now() < end) {
      pollfd waiting{loop_.fileDescriptor(), POLLIN, 0};
      if (::poll(&waiting, 1, 10) > 0) loop_.dispatchPending();
    }
    return isSo();
  }
  std::unique_ptr<WindowBacking> makeShown(CGSize size) {
    auto window = views_->makeWindow(size, "Shown", client_);
    window->orderFront();
    settle();
    client_->take();
    return window;
  }
  std::shared_ptr<ViewSurface> makeShownSurface(WindowBacking& window, const CGRect& frame) {
    auto surface = window.makeSurface(surfaceClient_);
    surface->setFrame(frame);
    surface->setHidden(false);
    settle();
    return surface;
  }
  [[nodiscard]] static xcb_window_t windowOf(const ViewSurface& surface) {
    return surface.nativeWindow().window;
  }

  std::vector<std::string> troubles_;
  TroubleHandler trouble_ = [this](const std::string& text) { troubles_.push_back(text); };
  EventLoop loop_{trouble_};
  std::unique_ptr<PrivateXServer> server_;
  std::shared_ptr<X11Connection> connection_;
  std::unique_ptr<X11EventPump> pump_;
  std::unique_ptr<X11Views> views_;
  std::unique_ptr<XProgram> other_;
  std::shared_ptr<Client> client_ = std::make_shared<Client>();
  std::shared_ptr<SurfaceClient> surfaceClient_ = std::make_shared<SurfaceClient>();
};

TEST_F(Windows, introduceThemselvesAndDoWhatTheyAreTold) {
  const auto window = views_->makeWindow({100.4, 0}, "K\u00e4se \u20ac\xFF", client_);
  const xcb_window_t id = window->windowNumber();
  EXPECT_EQ(window->state(), (WindowBacking::State{CGRectMake(0, 0, 100, 1), false}));
  settleConnection();
  EXPECT_EQ(other_->property(id, "_NET_WM_NAME"), "K\u00e4se \u20ac\xFF");
  EXPECT_EQ(other_->property(id, "WM_NAME"), "K\xE4se ??");
  EXPECT_THAT(other_->property(id, "WM_CLASS"), StartsWith(program_invocation_short_name));
  EXPECT_FALSE(other_->property(id, "WM_CLIENT_MACHINE").empty());
  const auto process = static_cast<std::uint32_t>(::getpid());
  EXPECT_EQ(std::memcmp(other_->property(id, "_NET_WM_PID").data(), &process, sizeof process), 0);
  // Far more than any request can hold.
  std::string endless = "x";
  while (endless.size() < 20'000'000) endless += "\u00e4";
  window->setTitle(endless);
  settleConnection();
  EXPECT_EQ(other_->property(id, "_NET_WM_NAME"), endless.substr(0, 4095)) << "the end is a whole character";

  window->orderFront();
  EXPECT_FALSE(window->state().viewable);  // as the server last told
  settle();
  EXPECT_TRUE(window->state().viewable);
  EXPECT_EQ(other_->focus(), id);
  window->setContentSize({60, 1e9});
  settle();
  EXPECT_EQ(window->state().frame.size, (CGSize{60, 32'767}));
  window->orderOut();
  settle();
  EXPECT_FALSE(window->state().viewable);
  EXPECT_THAT(client_->words, ElementsAre("changed", "changed", "changed"));
}

TEST_F(Windows, speakWithTheWindowManagerAsTheConventionsWantIt) {
  other_->select(other_->root(), kManagesWindows);
  const auto window = views_->makeWindow({50, 40}, "Managed", client_);
  const xcb_window_t id = window->windowNumber();
  window->orderFront();
  settleConnection();
  EXPECT_EQ(other_->next<xcb_map_request_event_t>(XCB_MAP_REQUEST)->window, id);
  const auto activation = other_->next<xcb_client_message_event_t>(XCB_CLIENT_MESSAGE);
  EXPECT_EQ(activation->type, other_->atom("_NET_ACTIVE_WINDOW"));
  EXPECT_EQ(activation->data.data32[0], 1U);
  other_->map(id);

  // The manager has it lie in a frame, and keeps its size.
  const xcb_window_t frame = other_->makeWindow({30, 20, 60, 60}, kWhite);
  other_->select(frame, kManagesWindows);
  other_->map(frame);
  other_->reparent(id, frame, 5, 15);
  settle();
  EXPECT_EQ(window->state(), (WindowBacking::State{CGRectMake(35, 35, 50, 40), true}));
  client_->take();
  window->setContentSize({70, 70});
  const xcb_configure_notify_event_t refusal{XCB_CONFIGURE_NOTIFY, 0, 0, id, id, 0, 35, 35, 50, 40, 0, 0, 0};
  xcb_send_event(other_->get(), 0, id, XCB_EVENT_MASK_STRUCTURE_NOTIFY,
                 reinterpret_cast<const char*>(&refusal));
  other_->sync();
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("changed")) << "the client counts on another size";
  EXPECT_EQ(window->state().frame.size, (CGSize{50, 40}));

  const xcb_atom_t ping = other_->atom("_NET_WM_PING");
  other_->send(id, true, "WM_PROTOCOLS", {ping, 4711, id});
  other_->send(id, true, "WM_PROTOCOLS", {0});
  other_->send(id, true, "WM_PROTOCOLS", {other_->atom("WM_DELETE_WINDOW")});
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("close"));
  const auto answer = other_->next<xcb_client_message_event_t>(XCB_CLIENT_MESSAGE);
  EXPECT_EQ(answer->window, other_->root());
  EXPECT_EQ(answer->data.data32[0], ping);
  EXPECT_EQ(answer->data.data32[1], 4711U);

  other_->unmap(id);  // minimised
  settle();
  EXPECT_FALSE(window->state().viewable);
  window->orderOut();
  settleConnection();
  XcbReply<xcb_unmap_notify_event_t> withdrawal;
  do {
    withdrawal = other_->next<xcb_unmap_notify_event_t>(XCB_UNMAP_NOTIFY);
  } while (withdrawal && withdrawal->response_type == XCB_UNMAP_NOTIFY);
  ASSERT_TRUE(withdrawal) << "nobody said that the window is wanted no more";
  EXPECT_EQ(withdrawal->window, id);
}

/// openbox on the server, as long as the object lives.
class Openbox {
 public:
  explicit Openbox(const std::string& display) {
    ::setenv("DISPLAY", display.c_str(), 1);
    std::array arguments{const_cast<char*>("openbox"), const_cast<char*>("--sm-disable"),
                         static_cast<char*>(nullptr)};
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&quiet, STDOUT_FILENO, STDERR_FILENO);
    if (::posix_spawnp(&process_, arguments[0], &quiet, nullptr, arguments.data(), environ)) process_ = -1;
    posix_spawn_file_actions_destroy(&quiet);
  }
  Openbox(const Openbox&) = delete;
  Openbox& operator=(const Openbox&) = delete;
  ~Openbox() {
    if (process_ < 0) return;
    ::kill(process_, SIGTERM);
    ::waitpid(process_, nullptr, 0);
  }

 private:
  pid_t process_ = -1;
};

TEST_F(Windows, liveUnderARealWindowManager) {
  if (std::system("command -v openbox > /dev/null") != 0) {
    GTEST_SKIP() << "openbox is not installed, and this test starts one";
  }
  const Openbox manager(server_->display());
  // While it starts it loses what it is asked for.
  const auto isServing = [&] {
    other_->send(other_->root(), false, "_NET_CURRENT_DESKTOP", {1});
    const std::string desktop = other_->property(other_->root(), "_NET_CURRENT_DESKTOP");
    return !desktop.empty() && desktop[0] == 1;
  };
  ASSERT_TRUE(serveUntil(isServing));
  const auto window = views_->makeWindow({100, 80}, "Managed", client_);
  const xcb_window_t id = window->windowNumber();
  window->orderFront();
  ASSERT_TRUE(serveUntil([&] { return window->state().viewable && other_->focus() == id; }));
  EXPECT_GT(window->state().frame.origin.y, 0) << "a title bar lies above it";
  const auto place = [&] {
    const auto found = other_->reply(xcb_translate_coordinates(other_->get(), id, other_->root(), 0, 0),
                                     xcb_translate_coordinates_reply);
    return CGPoint{static_cast<double>(found->dst_x), static_cast<double>(found->dst_y)};
  };
  EXPECT_TRUE(serveUntil([&] { return window->state().frame.origin == place(); }));

  constexpr std::uint32_t kSizeAndPlace = 0xF00 | 1;
  other_->send(id, false, "_NET_MOVERESIZE_WINDOW", {kSizeAndPlace, 40, 50, 120, 90});
  ASSERT_TRUE(serveUntil([&] { return window->state().frame.size == (CGSize{120, 90}); }));
  EXPECT_TRUE(serveUntil([&] { return window->state().frame.origin == place(); }));
  window->setContentSize({150, 60});
  EXPECT_TRUE(serveUntil([&] { return window->state().frame.size == (CGSize{150, 60}); }));

  constexpr std::uint32_t kIconic = 3;
  other_->send(id, false, "WM_CHANGE_STATE", {kIconic});
  ASSERT_TRUE(serveUntil([&] { return !window->state().viewable; }));
  window->orderFront();
  ASSERT_TRUE(serveUntil([&] { return window->state().viewable && other_->focus() == id; }));
  other_->send(id, false, "_NET_CLOSE_WINDOW", {});
  EXPECT_TRUE(serveUntil([&] { return client_->has("close"); }));
  window->orderOut();
  ASSERT_TRUE(serveUntil([&] { return !window->state().viewable; }));
  window->orderFront();
  EXPECT_TRUE(serveUntil([&] { return window->state().viewable && other_->focus() == id; }));
}

TEST_F(Windows, ofOthersAreFollowedThroughAllThatTheyLieIn) {
  const xcb_window_t top = other_->makeWindow({10, 20, 200, 150}, kWhite);
  const xcb_window_t middle = other_->makeWindow({3, 4, 150, 100}, kWhite, top);
  const xcb_window_t foreign = other_->makeWindow({1, 2, 100, 80}, kWhite, middle);
  const auto second = std::make_shared<Client>();
  auto window = views_->makeWindowIn(foreign, client_);
  const auto twin = views_->makeWindowIn(foreign, second);
  EXPECT_EQ(window->windowNumber(), foreign);
  EXPECT_EQ(window->state(), (WindowBacking::State{CGRectMake(14, 26, 100, 80), false}));
  // It stays its owner's.
  window->setTitle("Ours");
  window->setContentSize({9, 9});
  window->orderFront();
  settleConnection();
  EXPECT_EQ(other_->attributes(foreign)->all_event_masks, XCB_EVENT_MASK_STRUCTURE_NOTIFY);
  EXPECT_EQ(other_->property(foreign, "_NET_WM_NAME"), "");
  other_->send(foreign, true, "WM_PROTOCOLS", {other_->atom("WM_DELETE_WINDOW")});

  other_->map(foreign);
  other_->map(middle);
  settle();
  EXPECT_THAT(client_->take(), IsEmpty());
  other_->map(top);
  settle();
  EXPECT_TRUE(window->state().viewable);
  EXPECT_THAT(client_->take(), ElementsAre("changed"));
  other_->configure(top, XCB_CONFIG_WINDOW_X, {50, 60});
  settle();
  EXPECT_EQ(window->state().frame, CGRectMake(54, 66, 100, 80));

  // Its old surroundings matter no more, and the new ones do.
  const xcb_window_t refuge = other_->makeWindow({0, 0, 300, 200}, kWhite);
  other_->reparent(middle, refuge, 7, 7);
  settle();
  EXPECT_EQ(window->state(), (WindowBacking::State{CGRectMake(8, 9, 100, 80), false}));
  client_->take();
  other_->configure(top, XCB_CONFIG_WINDOW_X, {0, 0});
  settle();
  EXPECT_THAT(client_->take(), IsEmpty());
  EXPECT_EQ(other_->attributes(top)->all_event_masks, 0U);
  other_->map(refuge);
  settle();
  EXPECT_TRUE(window->state().viewable);

  window.reset();
  second->take();
  other_->configure(foreign, XCB_CONFIG_WINDOW_WIDTH, {44, 33});
  settle();
  EXPECT_EQ(twin->state().frame.size, (CGSize{44, 33}));
  other_->destroy(refuge);
  settle();
  EXPECT_THAT(second->take(), ElementsAre("changed", "gone"));
  EXPECT_FALSE(twin->state().viewable);
  EXPECT_EQ(twin->makeSurface({}), nullptr);
  EXPECT_EQ(views_->makeWindowIn(foreign, client_), nullptr);
  EXPECT_EQ(views_->makeWindowIn(0, client_), nullptr);

  // The root is nobody's child, and other parts of us watch it too.
  const auto root = views_->makeWindowIn(other_->root(), client_);
  EXPECT_EQ(root->state(), (WindowBacking::State{CGRectMake(0, 0, 320, 240), true}));
}

TEST_F(Windows, aStormOfChangesIsAFewCallsAndEndsWithTheLastState) {
  const xcb_window_t foreign = other_->makeWindow({0, 0, 100, 80}, kWhite);
  const auto window = views_->makeWindowIn(foreign, client_);
  std::jthread capture([this](const std::stop_token& stop) {
    while (!stop.stop_requested()) settleConnection();
  });
  for (int side = 1; side <= 500; ++side) other_->configure(foreign, XCB_CONFIG_WINDOW_WIDTH, {side, side});
  settle();
  EXPECT_EQ(window->state().frame.size, (CGSize{500, 500}));
  EXPECT_THAT(client_->words, ElementsAre("changed"));
  const std::size_t before = client_->words.size();
  other_->configure(foreign, XCB_CONFIG_WINDOW_X, {1, 1});
  other_->configure(foreign, XCB_CONFIG_WINDOW_X, {0, 0});
  settle();
  EXPECT_EQ(client_->words.size(), before) << "nothing is told when nothing is different";
}

class SurfacesInWindowOfDepth : public Windows, public testing::WithParamInterface<int> {};

TEST_P(SurfacesInWindowOfDepth, keepTheirPixelsAndFlashNoBlack) {
  other_->map(other_->makeWindow({0, 0, 100, 80}, kBlue));
  const xcb_window_t foreign =
      other_->makeWindow({0, 0, 100, 80}, kWhite, XCB_NONE, static_cast<std::uint8_t>(GetParam()));
  other_->map(foreign);
  const auto window = views_->makeWindowIn(foreign, client_);
  auto surface = window->makeSurface(surfaceClient_);
  ASSERT_TRUE(surface);
  const xcb_window_t id = windowOf(*surface);
  EXPECT_EQ(surface->nativeWindow().display, server_->display());
  EXPECT_EQ(surface->nativeWindow().visual, other_->attributes(id)->visual);
  surface->setHidden(false);
  settle();
  EXPECT_FALSE(other_->isViewable(id)) << "it has no size yet";
  surface->setFrame(CGRectMake(10, 10, 30, 20));
  settle();
  EXPECT_EQ(other_->pixelAt(9, 10), kWhite);
  EXPECT_EQ(other_->pixelAt(10, 10), kBlack);
  EXPECT_EQ(other_->pixelAt(39, 29), kBlack);
  EXPECT_THAT(surfaceClient_->take(), ElementsAre("exposed"));

  other_->fill(id, kRed);
  surface->setFrame(CGRectMake(20, 10, 50, 40));
  other_->configure(foreign, XCB_CONFIG_WINDOW_WIDTH, {200, 150});
  settle();
  EXPECT_EQ(other_->pixelAt(20, 10), kRed);
  EXPECT_EQ(other_->pixelAt(49, 29), kRed);
  EXPECT_EQ(other_->pixelAt(69, 49), kWhite) << "what is new is not painted";
  EXPECT_TRUE(surfaceClient_->has("exposed"));
  other_->unmap(foreign);
  settle();
  other_->map(foreign);
  EXPECT_EQ(other_->pixelAt(30, 20), kBlack) << "neither what it showed nor what lay below";
  settle();
  surface->setFrame(CGRectMake(20, 10, 0.9, 40));
  settle();
  EXPECT_EQ(other_->pixelAt(20, 10), kWhite);
  surface->setFrame(CGRectMake(-1e300, 1e300, std::nan(""), -5));
  surface->setHidden(true);
  surface->setFrame(CGRectMake(20, 10, 50, 40));
  settle();
  EXPECT_FALSE(other_->isViewable(id));
  surface.reset();
  settle();
  EXPECT_FALSE(other_->attributes(id));
}

INSTANTIATE_TEST_SUITE_P(Depths, SurfacesInWindowOfDepth, testing::Values(24, 32));

TEST_F(Windows, stackTheirSurfacesAndSayWhenOneIsCovered) {
  auto window = makeShown({100, 80});
  const auto first = makeShownSurface(*window, CGRectMake(0, 0, 40, 40));
  other_->fill(windowOf(*first), kRed);
  surfaceClient_->take();
  const auto secondClient = std::make_shared<SurfaceClient>();
  auto second = window->makeSurface(secondClient);
  second->setFrame(CGRectMake(0, 0, 60, 60));
  second->setHidden(false);
  settle();
  EXPECT_EQ(other_->pixelAt(5, 5), kBlack) << "a new one lies in front";
  EXPECT_THAT(surfaceClient_->take(), ElementsAre("occluded"));
  first->raise();
  settle();
  EXPECT_THAT(surfaceClient_->take(), ElementsAre("seen", "exposed"));
  EXPECT_EQ(other_->pixelAt(50, 50), kBlack);

  // Another window over a part of it, and away.
  other_->fill(windowOf(*first), kRed);
  const xcb_window_t cover = other_->makeWindow({0, 0, 20, 20}, kBlue);
  other_->map(cover);
  settle();
  EXPECT_THAT(surfaceClient_->take(), IsEmpty());
  other_->configure(cover, XCB_CONFIG_WINDOW_WIDTH, {300, 200});
  settle();
  other_->destroy(cover);
  settle();
  EXPECT_THAT(surfaceClient_->take(), ElementsAre("occluded", "seen", "exposed"));

  // A client that lets go while it is told.
  secondClient->then = [&] { second.reset(); };
  secondClient->take();
  first->raise();
  first->setFrame(CGRectMake(0, 0, 70, 70));
  second->setFrame(CGRectMake(0, 0, 90, 75));
  settle();
  EXPECT_THAT(secondClient->take(), testing::SizeIs(1));
  const xcb_window_t id = windowOf(*first);
  window.reset();
  settleConnection();
  EXPECT_FALSE(other_->attributes(id));
  first->setHidden(true);
  first->raise();
}

constexpr xcb_keycode_t kShift = 50;
constexpr xcb_keycode_t kControl = 37;
constexpr xcb_keycode_t kAlt = 64;
constexpr xcb_keycode_t kQ = 24;
constexpr xcb_keycode_t kY = 29;
constexpr xcb_keycode_t kMenu = 135;
constexpr xcb_keycode_t kLeft = 113;
constexpr xcb_keycode_t kEscape = 9;

TEST_F(Windows, tellWhenOthersTakeTheirSurfacesAway) {
  const xcb_window_t foreign = other_->makeWindow({0, 0, 100, 80}, kWhite);
  other_->map(foreign);
  const auto window = views_->makeWindowIn(foreign, client_);
  const auto surface = window->makeSurface(surfaceClient_);
  surface->setFrame(CGRectMake(0, 0, 50, 40));
  surface->setHidden(false);
  settle();
  const auto isViewable = [&] {
    return other_->attributes(surface->nativeWindow().window)->map_state == XCB_MAP_STATE_VIEWABLE;
  };
  xcb_unmap_subwindows(other_->get(), foreign);
  other_->sync();
  settle();
  EXPECT_FALSE(isViewable());
  surface->setFrame(CGRectMake(0, 0, 60, 40));
  settle();
  EXPECT_TRUE(isViewable());
  surfaceClient_->take();
  xcb_destroy_subwindows(other_->get(), foreign);
  other_->sync();
  settle();
  EXPECT_THAT(surfaceClient_->take(), ElementsAre("surface gone"));
  EXPECT_TRUE(window->makeSurface(surfaceClient_));
}

TEST_F(Windows, getTheKeysInTheLayoutInForceWhereverThePointerIs) {
  const auto window = makeShown({100, 80});
  const auto surface = makeShownSurface(*window, CGRectMake(0, 0, 100, 80));
  xcb_warp_pointer(other_->get(), XCB_NONE, other_->root(), 0, 0, 0, 0, 20, 20);
  other_->press(kQ);
  other_->press(kLeft);
  other_->press(kEscape);
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("q q 0", "Left  0", "Escape \x1B 0"));
  other_->key(kShift, true);
  other_->press(kQ);
  other_->key(kShift, false);
  other_->key(kControl, true);
  other_->key(kAlt, true);
  other_->press(kQ);
  other_->key(kAlt, false);
  other_->key(kControl, false);
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("Shift_L  0", "Q Q 1", "Control_L  0", "Alt_L  2", "q \x11 6"));

  constexpr xcb_keysym_t kEuro = 0x20AC;
  constexpr xcb_keysym_t kAUmlaut = 0xE4;
  other_->mapKey(kQ, {kAUmlaut, kEuro});
  other_->press(kQ);
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("adiaeresis \u00e4 0"));

  const std::string twoLayouts =
      "setxkbmap -display " + server_->display() + " us,de -option grp:menu_toggle";
  ASSERT_EQ(std::system(twoLayouts.c_str()), 0);
  other_->press(kY);
  other_->press(kMenu);
  other_->press(kY);
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("y y 0", "ISO_Next_Group  0", "z z 0"));

  other_->key(kLeft, true);
  EXPECT_TRUE(serveUntil([&] { return client_->has("Left  0 again"); }));
  other_->key(kLeft, false);
  settle();
  client_->take();
  other_->press(kLeft);
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("Left  0"));

  // In one that is another program's, keys are its own.
  const auto stranger = std::make_shared<Client>();
  const auto wrapped = views_->makeWindowIn(window->windowNumber(), stranger);
  other_->press(kEscape);
  settle();
  EXPECT_THAT(stranger->take(), IsEmpty());
  EXPECT_THAT(client_->take(), ElementsAre("Escape \x1B 0"));
}

TEST_F(Windows, surviveTheirEndInsideACallback) {
  auto window = makeShown({100, 80});
  client_->then = [&] { window.reset(); };
  other_->press(kQ);
  other_->press(kQ);
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("q q 0"));

  window = views_->makeWindow({30, 30}, "Second", client_);
  window->orderFront();
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("changed"));
  const xcb_window_t foreign = other_->makeWindow({0, 0, 100, 80}, kWhite);
  window = views_->makeWindowIn(foreign, client_);
  other_->destroy(foreign);
  settle();
  EXPECT_THAT(client_->take(), ElementsAre("gone"));
  EXPECT_FALSE(window);
  const auto tree = other_->reply(xcb_query_tree(other_->get(), other_->root()), xcb_query_tree_reply);
  EXPECT_EQ(tree->children_len, 0) << "a window was left behind";
}

TEST_F(Windows, surviveTheLossOfTheServer) {
  const auto own = makeShown({100, 80});
  const auto surface = makeShownSurface(*own, CGRectMake(0, 0, 40, 40));
  const xcb_window_t foreign = other_->makeWindow({0, 0, 100, 80}, kWhite);
  const auto second = std::make_shared<Client>();
  auto window = views_->makeWindowIn(foreign, second);
  client_->then = [&] {
    server_->kill();
    own->orderFront();
    own->setTitle("Nobody reads it");
    EXPECT_EQ(own->makeSurface({}), nullptr);
  };
  own->setContentSize({50, 50});
  other_->map(foreign);
  ASSERT_TRUE(serveUntil([&] { return client_->has("gone") && second->has("gone"); }));
  EXPECT_THAT(client_->words, ElementsAre("changed", "gone"));
  EXPECT_EQ(std::count(second->words.begin(), second->words.end(), "gone"), 1);
  EXPECT_FALSE(own->state().viewable);
  own->orderOut();
  own->setContentSize({1, 1});
  surface->setFrame(CGRectMake(0, 0, 50, 50));
  surface->setHidden(true);
  surface->raise();
  EXPECT_EQ(views_->makeWindow({1, 1}, "", client_), nullptr);
  EXPECT_EQ(views_->makeWindowIn(foreign, client_), nullptr);
  EXPECT_THAT(troubles_, IsEmpty());
}

TEST_F(Windows, areThereOnlyWhereTheServerShowsTwentyFourBits) {
  X11Views nowhere(nullptr, loop_, trouble_);
  EXPECT_EQ(nowhere.makeWindow({1, 1}, "", client_), nullptr);
  EXPECT_EQ(nowhere.makeWindowIn(1, client_), nullptr);
  EXPECT_THAT(troubles_, IsEmpty());
  start({.depth = 16});
  EXPECT_EQ(views_->makeWindow({1, 1}, "", client_), nullptr);
  EXPECT_EQ(views_->makeWindow({1, 1}, "", client_), nullptr);
  EXPECT_THAT(troubles_, ElementsAre(HasSubstr("24 bits")));
}

}  // namespace
}  // namespace QelUtilVideo
