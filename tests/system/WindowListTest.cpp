#include "platform/linux/x11/X11EventPump.h"
#include "platform/linux/x11/windowserver/WindowTable.h"
#include "support/PrivateXServer.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <thread>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;
using testing::ElementsAre;
using testing::IsEmpty;

/// Another program with windows. Each call waits until the server has done it.
class Client {
 public:
  explicit Client(const std::string& display) : connection_(X11Connection::open(display.c_str())) {}
  void sync() const {
    const X11Connection::Use use(*connection_);
    static_cast<void>(use.reply(xcb_get_input_focus(use), xcb_get_input_focus_reply));
  }
  [[nodiscard]] xcb_window_t make(const PixelRect& place, bool isMenu = false, xcb_window_t parent = XCB_NONE,
                                  std::uint16_t border = 0) const {
    const X11Connection::Use use(*connection_);
    const xcb_window_t window = xcb_generate_id(use);
    const std::uint32_t redirects = isMenu;
    xcb_create_window(use, XCB_COPY_FROM_PARENT, window, parent ? parent : connection_->root(),
                      static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y),
                      static_cast<std::uint16_t>(place.width), static_cast<std::uint16_t>(place.height),
                      border, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                      &redirects);
    sync();
    return window;
  }
  [[nodiscard]] xcb_window_t show(const PixelRect& place, bool isMenu = false) const {
    const xcb_window_t window = make(place, isMenu);
    map(window);
    return window;
  }
  void map(xcb_window_t window) const { xcb_map_window(X11Connection::Use(*connection_), window), sync(); }
  void unmap(xcb_window_t window) const {
    xcb_unmap_window(X11Connection::Use(*connection_), window), sync();
  }
  void destroy(xcb_window_t window) const {
    xcb_destroy_window(X11Connection::Use(*connection_), window), sync();
  }
  void configure(xcb_window_t window, std::uint16_t mask, std::vector<std::uint32_t> values) const {
    xcb_configure_window(X11Connection::Use(*connection_), window, mask, values.data());
    sync();
  }
  void reparent(xcb_window_t window, xcb_window_t parent, std::int16_t x, std::int16_t y) const {
    xcb_reparent_window(X11Connection::Use(*connection_), window, parent, x, y);
    sync();
  }
  [[nodiscard]] xcb_atom_t atom(const std::string& name) const {
    const X11Connection::Use use(*connection_);
    return use
        .reply(xcb_intern_atom(use, 0, static_cast<std::uint16_t>(name.size()), name.data()),
               xcb_intern_atom_reply)
        ->atom;
  }
  void set(xcb_window_t window, const std::string& property, const std::string& type, std::uint8_t format,
           const std::string& bytes) const {
    const xcb_atom_t name = atom(property), kind = atom(type);
    xcb_change_property(X11Connection::Use(*connection_), XCB_PROP_MODE_REPLACE, window, name, kind, format,
                        static_cast<std::uint32_t>(bytes.size() * 8 / format), bytes.data());
    sync();
  }
  void setNumbers(xcb_window_t window, const std::string& property, const std::string& type,
                  const std::vector<std::uint32_t>& numbers) const {
    set(window, property, type, 32, {reinterpret_cast<const char*>(numbers.data()), 4 * numbers.size()});
  }
  void iconify(xcb_window_t window) const {
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = atom("WM_CHANGE_STATE");
    message.data.data32[0] = 3;
    xcb_send_event(X11Connection::Use(*connection_), 0, root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
    sync();
  }
  [[nodiscard]] xcb_window_t root() const { return connection_->root(); }
  [[nodiscard]] const std::shared_ptr<X11Connection>& connection() const { return connection_; }

 private:
  std::shared_ptr<X11Connection> connection_;
};

class WindowTables : public testing::Test {
 protected:
  void SetUp() override {
    QEL_REQUIRE_X_SERVER();
    server_ = PrivateXServer::start({.width = 640, .height = 480});
    ASSERT_TRUE(server_);
    connection_ = X11Connection::open(server_->display().c_str());
    ASSERT_TRUE(connection_);
    table_ = WindowTable::make(connection_, loop_, std::chrono::milliseconds(300));
    client_.emplace(server_->display());
  }
  void TearDown() override { endManager(); }

  void startManager() {
    const std::string display = server_->display();
    manager_ = ::fork();
    if (manager_ == 0) {
      ::setenv("DISPLAY", display.c_str(), 1);
      ::execlp("openbox", "openbox", "--sm-disable", static_cast<char*>(nullptr));
      ::_exit(127);
    }
  }
  void endManager() {
    if (manager_ <= 0) return;
    ::kill(manager_, SIGKILL);
    ::waitpid(std::exchange(manager_, 0), nullptr, 0);
  }
  [[nodiscard]] static std::vector<xcb_window_t> numbers(const std::vector<WindowRecord>& windows) {
    std::vector<xcb_window_t> all;
    for (const auto& window : windows) all.push_back(window.window);
    return all;
  }
  [[nodiscard]] std::vector<xcb_window_t> onScreen() const { return numbers(table_->current()->onScreen); }
  [[nodiscard]] std::vector<xcb_window_t> offScreen() const { return numbers(table_->current()->offScreen); }
  /// The window's record; one of no window when it is not listed.
  [[nodiscard]] WindowRecord record(xcb_window_t window) const {
    const auto list = table_->current();
    for (const auto* windows : {&list->onScreen, &list->offScreen}) {
      for (const auto& listed : *windows) {
        if (listed.window == window) return listed;
      }
    }
    return {};
  }
  static bool eventually(const std::function<bool()>& condition) {
    for (int wait = 0; wait < 1000; ++wait) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  TroubleHandler trouble_ = [](const std::string&) {};
  EventLoop loop_{trouble_};
  std::unique_ptr<PrivateXServer> server_;
  std::shared_ptr<X11Connection> connection_;
  std::shared_ptr<WindowTable> table_;
  std::optional<Client> client_;
  pid_t manager_ = 0;
};

TEST_F(WindowTables, listWhatIsShownFrontToBackAndFollowEveryChange) {
  EXPECT_THAT(onScreen(), IsEmpty());
  const xcb_window_t low = client_->show({10, 20, 200, 100});
  const xcb_window_t high = client_->show({50, 60, 70, 80}, true);
  const xcb_window_t hidden = client_->make({0, 0, 10, 10});
  EXPECT_THAT(onScreen(), ElementsAre(high, low));
  EXPECT_THAT(offScreen(), IsEmpty()) << "of an unmanaged window that is not shown nobody knows";
  const auto unchanged = table_->current();
  EXPECT_EQ(table_->current(), unchanged);

  client_->configure(low, XCB_CONFIG_WINDOW_STACK_MODE, {XCB_STACK_MODE_ABOVE});
  EXPECT_THAT(onScreen(), ElementsAre(low, high));
  client_->configure(low, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_BORDER_WIDTH,
                     {30, 99, 4});
  EXPECT_EQ(record(low).bounds, (PixelRect{34, 24, 99, 100}));
  EXPECT_EQ(record(low).topBounds, (PixelRect{30, 20, 107, 108}));
  client_->map(hidden);
  client_->unmap(high);
  EXPECT_THAT(onScreen(), ElementsAre(low, hidden));
  client_->destroy(low);
  EXPECT_THAT(onScreen(), ElementsAre(hidden));
  const auto life = record(hidden).topLife;
  client_->set(hidden, "WM_NAME", "STRING", 8, "caf\xE9");
  EXPECT_EQ(record(hidden).name, "caf\xC3\xA9");
  client_->set(hidden, "_NET_WM_NAME", "UTF8_STRING", 8, "new");
  EXPECT_EQ(record(hidden).name, "new");
  EXPECT_EQ(record(hidden).processIdentifier, ::getpid());
  EXPECT_EQ(record(hidden).topLife, life);
  EXPECT_EQ(table_->current()->desktop.bounds, (PixelRect{0, 0, 640, 480}));
  EXPECT_LT(table_->current()->desktop.processIdentifier, 0);
}

TEST_F(WindowTables, findClientsInFramesOfManagersWithAndWithoutAList) {
  const xcb_window_t frame = client_->make({100, 100, 220, 140}, false, XCB_NONE, 2);
  const xcb_window_t inner = client_->make({5, 25, 210, 110}, false, frame);
  const xcb_window_t window = client_->make({1, 1, 200, 100});
  client_->reparent(window, inner, 3, 4);
  for (const xcb_window_t one : {window, inner, frame}) client_->map(one);
  EXPECT_THAT(onScreen(), ElementsAre(frame)) << "nobody has told yet whose window it is";
  client_->setNumbers(window, "WM_STATE", "WM_STATE", {1, 0});
  EXPECT_THAT(onScreen(), ElementsAre(window));
  client_->configure(frame, XCB_CONFIG_WINDOW_X, {110});
  EXPECT_EQ(record(window).top, frame);
  EXPECT_EQ(record(window).bounds, (PixelRect{120, 131, 200, 100}));

  const xcb_window_t bare = client_->show({0, 0, 50, 50});
  client_->setNumbers(client_->root(), "_NET_CLIENT_LIST", "WINDOW", {window, bare, 0xdead});
  client_->unmap(window);
  EXPECT_THAT(onScreen(), ElementsAre(bare));
  EXPECT_THAT(offScreen(), ElementsAre(window));
  client_->map(window);
  client_->reparent(window, client_->root(), 7, 8);
  EXPECT_THAT(onScreen(), ElementsAre(window, bare, frame));
  EXPECT_EQ(record(window).top, window);
  EXPECT_EQ(record(window).bounds, (PixelRect{7, 8, 200, 100}));
}

TEST_F(WindowTables, followFramesThatAreShownHiddenAndResizedWithoutTheirClients) {
  const xcb_window_t frame = client_->make({100, 100, 220, 140});
  const xcb_window_t window = client_->make({10, 20, 200, 100}, false, frame);
  {
    const X11Connection::Use use(*client_->connection());
    const std::uint32_t gravity = XCB_GRAVITY_SOUTH_EAST;
    xcb_change_window_attributes(use, window, XCB_CW_WIN_GRAVITY, &gravity);
  }
  client_->map(window);
  client_->setNumbers(client_->root(), "_NET_CLIENT_LIST", "WINDOW", {window, window, window});
  EXPECT_THAT(offScreen(), ElementsAre(window)) << "named once is enough";
  client_->map(frame);
  EXPECT_THAT(onScreen(), ElementsAre(window));
  client_->configure(frame, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, {320, 240});
  EXPECT_EQ(record(window).bounds, (PixelRect{210, 220, 200, 100}));
  client_->unmap(frame);
  EXPECT_THAT(onScreen(), IsEmpty());
  EXPECT_THAT(offScreen(), ElementsAre(window));

  client_->setNumbers(frame, "_NET_WM_WINDOW_OPACITY", "CARDINAL", {0x7FFFFFFF});
  EXPECT_NEAR(record(window).alpha, 0.5, 1e-6);
  client_->set(window, "WM_CLASS", "STRING", 8, std::string("a\0b\0", 4));
  client_->set(window, "_GTK_APPLICATION_ID", "UTF8_STRING", 8, "org.example.Late");
  EXPECT_EQ(record(window).bundleIdentifier, "org.example.Late");
}

TEST_F(WindowTables, takeAWindowWithTheNumberOfAnEarlierOneForAnother) {
  const auto showOf = [&](const char* title) {
    client_.emplace(server_->display());
    const xcb_window_t window = client_->show({0, 0, 100, 100});
    client_->set(window, "WM_NAME", "STRING", 8, title);
    return window;
  };
  const xcb_window_t first = showOf("first");
  const WindowRecord before = record(first);
  EXPECT_EQ(before.name, "first");
  client_.reset();
  // The server gives the numbers of clients that left to those that come.
  xcb_window_t second = XCB_NONE;
  for (int i = 0; i < 600 && second != first; ++i) second = showOf("second");
  ASSERT_EQ(second, first);
  EXPECT_EQ(record(first).name, "second");
  EXPECT_NE(record(first).topLife, before.topLife);
  client_->set(second, "WM_NAME", "STRING", 8, "third");
  EXPECT_EQ(record(first).name, "third") << "its changes are followed";
}

TEST_F(WindowTables, believeNothingAbsurd) {
  const xcb_window_t window = client_->show({0, 0, 300, 200});
  client_->set(window, "_NET_WM_NAME", "UTF8_STRING", 8, std::string(200'000, 'x') + "\xff");
  EXPECT_LE(record(window).name->size(), 4096U);
  client_->set(window, "_NET_WM_NAME", "UTF8_STRING", 8,
               "a\xff"
               "b");
  EXPECT_EQ(record(window).name,
            "a\xEF\xBF\xBD"
            "b");
  client_->set(window, "_NET_WM_NAME", "CARDINAL", 8, "no text");
  client_->set(window, "_NET_WM_WINDOW_OPACITY", "STRING", 8, "half");
  client_->setNumbers(window, "_GTK_FRAME_EXTENTS", "CARDINAL", {200, 200, 0, 0});
  client_->setNumbers(window, "_NET_WM_WINDOW_TYPE", "ATOM", {0, 12345678});
  client_->setNumbers(window, "_NET_WM_PID", "CARDINAL", {0});
  client_->setNumbers(window, "WM_TRANSIENT_FOR", "WINDOW", {client_->root()});
  const WindowRecord listed = record(window);
  EXPECT_EQ(listed.name, std::nullopt);
  EXPECT_EQ(listed.alpha, 1.0);
  EXPECT_EQ(listed.bounds, (PixelRect{0, 0, 300, 200}));
  EXPECT_EQ(listed.layer, 0);
  client_->setNumbers(window, "_NET_WM_WINDOW_OPACITY", "CARDINAL", {0x7FFFFFFF});
  client_->setNumbers(window, "_GTK_FRAME_EXTENTS", "CARDINAL", {10, 20, 30, 40});
  client_->setNumbers(window, "_NET_WM_WINDOW_TYPE", "ATOM", {0, client_->atom("_NET_WM_WINDOW_TYPE_DOCK")});
  EXPECT_NEAR(record(window).alpha, 0.5, 1e-6);
  EXPECT_EQ(record(window).bounds, (PixelRect{10, 30, 270, 130}));
  EXPECT_EQ(record(window).layer, 20);
  client_->configure(window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_WIDTH,
                     {static_cast<std::uint32_t>(-32000), 60000});
  EXPECT_EQ(record(window).bounds, (PixelRect{-31990, 30, 59970, 130}));
}

TEST_F(WindowTables, followARealWindowManagerItsEndAndItsReturn) {
  startManager();
  ASSERT_TRUE(eventually([&] { return record(XCB_NONE).window == XCB_NONE && !onScreen().empty(); }))
      << "openbox is not installed";
  const xcb_window_t back = client_->show({30, 30, 200, 150});
  const xcb_window_t front = client_->show({60, 60, 200, 150});
  const auto isListed = [&](xcb_window_t window, bool isOnScreen) {
    if (isOnScreen) client_->map(window);  // while it starts, it loses what it is asked for
    const WindowRecord listed = record(window);
    return listed.window == window && listed.isOnScreen == isOnScreen && listed.top != window;
  };
  ASSERT_TRUE(eventually([&] { return isListed(back, true) && isListed(front, true); }));
  EXPECT_EQ(record(front).bounds.width, 200);
  EXPECT_GT(record(front).bounds.y, record(front).topBounds.y) << "below its title";
  const auto listed = onScreen();
  EXPECT_LT(std::find(listed.begin(), listed.end(), front), std::find(listed.begin(), listed.end(), back));

  client_->iconify(front);
  EXPECT_TRUE(eventually([&] { return isListed(front, false); }));
  EXPECT_TRUE(eventually([&] { return isListed(front, true); }));
  endManager();
  EXPECT_TRUE(eventually([&] { return record(front).top == front; })) << "the server gives it back";
  client_->configure(front, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, {5, 6});
  EXPECT_EQ(record(front).bounds, (PixelRect{5, 6, 200, 150}));
  startManager();
  EXPECT_TRUE(eventually([&] { return isListed(front, true); }));
}

TEST_F(WindowTables, restWhenNobodyAsksAndAreCompleteWhenSomebodyDoes) {
  const xcb_window_t window = client_->show({0, 0, 100, 100});
  EXPECT_THAT(onScreen(), ElementsAre(window));
  const std::weak_ptr<const WindowList> list = table_->current();
  const auto connection = X11Connection::open(server_->display().c_str());
  const auto hasListeners = [&] {
    const X11Connection::Use use(*connection);
    return use.reply(xcb_get_window_attributes(use, window), xcb_get_window_attributes_reply)
               ->all_event_masks != 0;
  };
  EXPECT_TRUE(hasListeners());
  {
    const X11EventPump pump(connection_, loop_);
    const auto change = [&] {
      for (std::uint32_t i = 0; i < 1000; ++i) client_->configure(window, XCB_CONFIG_WINDOW_X, {i % 50});
      loop_.dispatchPending();
    };
    EXPECT_TRUE(eventually([&] {
      change();
      return !hasListeners();
    }));
  }
  EXPECT_TRUE(list.expired());
  client_->configure(window, XCB_CONFIG_WINDOW_X, {42});
  EXPECT_EQ(record(window).bounds.x, 42);
}

TEST_F(WindowTables, areNoneWithoutTheServer) {
  static_cast<void>(client_->show({0, 0, 100, 100}));
  EXPECT_TRUE(table_->current());
  server_->kill();
  EXPECT_EQ(table_->current(), nullptr);
  EXPECT_EQ(table_->current(), nullptr);
}

}  // namespace
}  // namespace QelUtilVideo
