#include "platform/Platform.h"
#include "platform/Root.h"
#include "platform/Synchronised.h"
#include "platform/linux/core/UniqueFD.h"
#include "support/PrivateXServer.h"
#include "support/VncOutputs.h"
#include "support/WindowPainter.h"

#include <QelUtilVideo/CapturableOutputDelegate.h>
#include <QelUtilVideo/CapturableWindow.h>
#include <QelUtilVideo/CapturableWindowManager.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>
#include <QelUtilVideo/platform/MainLoop.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <thread>

namespace QelUtilVideo {
namespace {

using qeltest::PaintedWindow;
using qeltest::PrivateXServer;
using qeltest::WindowPainter;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Another program, ended with the object.
struct Program {
  pid_t process = -1;

  explicit Program(pid_t number) : process(number) {}
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() {
    if (process > 0) ::kill(process, SIGKILL), ::waitpid(process, nullptr, 0);
  }
};

/// One that shows a menu there.
pid_t showElsewhere(const std::string& display, const PixelRect& place, std::uint32_t seed) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const WindowPainter painter(display);
    (void)painter.show(place, seed, 0, true);
    while (true) ::raise(SIGSTOP);
  }
  ::waitpid(child, nullptr, WUNTRACED);
  return child;
}

/// Counts what a source says, and looks at each frame.
class Watcher : public CapturableOutputDelegate {
 public:
  void capturableWillStartRunning(const std::shared_ptr<Capturable>&) override {}
  void capturableDidFailToStartRunning(const std::shared_ptr<Capturable>&, const NSError&) override {
    ++ends;
  }
  void capturableDidStartRunning(const std::shared_ptr<Capturable>&) override { ++starts; }
  void capturableDidStopRunning(const std::shared_ptr<Capturable>&, const NSError*) override { ++ends; }
  void capturableDidBeginInterruption(const std::shared_ptr<Capturable>&, const Dictionary*) override {
    ++interruptions;
  }
  void capturableDidEndInterruption(const std::shared_ptr<Capturable>&) override { ++resumptions; }
  void capturableDidOutput(const std::shared_ptr<Capturable>&, const CVPixelBufferRef& frame,
                           double) override {
    const std::size_t row = CVPixelBufferGetBytesPerRow(*frame), height = CVPixelBufferGetHeight(*frame);
    if (row != 4 * CVPixelBufferGetWidth(*frame) || height < 80) ++misshapen;
    // Reads the first and the last byte that it says to have.
    const std::byte* bytes = CVPixelBufferGetBaseAddress(*frame);
    sum = sum + std::to_integer<int>(bytes[0]) + std::to_integer<int>(bytes[row * height - 1]);
    last.with([&](CVPixelBufferRef& kept) { kept = frame; });
    ++frames;
  }

  std::atomic<int> starts = 0, ends = 0, interruptions = 0, resumptions = 0, frames = 0, misshapen = 0,
                   sum = 0;
  Synchronised<CVPixelBufferRef> last;
};

class WindowCapture : public testing::Test {
 protected:
  void SetUp() override {
    QEL_REQUIRE_X_SERVER();
    server_ = PrivateXServer::start({.width = 640, .height = 480});
    ASSERT_TRUE(server_);
    ::setenv("DISPLAY", server_->display().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
  }
  void TearDown() override { Root::replace(nullptr); }

  static void serve() {
    pollfd entry{MainLoop::main().fileDescriptor(), POLLIN, 0};
    ::poll(&entry, 1, 10);
    MainLoop::main().dispatchPending();
  }
  [[nodiscard]] static bool serveUntil(const std::function<bool()>& isSo) {
    for (const auto end = Clock::now() + 10s; !isSo() && Clock::now() < end;) serve();
    return isSo();
  }

  std::unique_ptr<PrivateXServer> server_;
};

/// With a window manager.
class ManagedWindowCapture : public WindowCapture {
 protected:
  void SetUp() override {
    if (std::system("command -v openbox > /dev/null") != 0) {
      GTEST_SKIP() << "openbox is not installed, and this test starts one";
    }
    WindowCapture::SetUp();
    if (server_) startManager();
  }

  void startManager() {
    std::array arguments{const_cast<char*>("openbox"), const_cast<char*>("--sm-disable"),
                         static_cast<char*>(nullptr)};
    pid_t process = -1;
    ASSERT_EQ(::posix_spawnp(&process, arguments[0], nullptr, nullptr, arguments.data(), environ), 0);
    manager_.emplace(process);
  }
  [[nodiscard]] static bool isManaged(const WindowPainter& painter) {
    const X11Connection::Use use(*painter.connection());
    const auto list = use.reply(xcb_intern_atom(use, 0, 16, "_NET_CLIENT_LIST"), xcb_intern_atom_reply);
    const auto clients =
        use.reply(xcb_get_property(use, 0, painter.connection()->root(), list->atom, XCB_ATOM_ANY, 0, 1),
                  xcb_get_property_reply);
    return clients && xcb_get_property_value_length(clients.get()) > 0;
  }
  static void awaitManaged(const WindowPainter& painter) {
    for (const auto end = Clock::now() + 10s; !isManaged(painter) && Clock::now() < end;) {
      std::this_thread::sleep_for(5ms);
    }
  }

  std::optional<Program> manager_;
};

TEST_F(ManagedWindowCapture, showsTheWindowWithItsMenuAndTheOverlayAndNoStranger) {
  const WindowPainter painter(server_->display());
  PaintedWindow window = painter.show({50, 60, 200, 150}, 1);
  awaitManaged(painter);
  const Program stranger(showElsewhere(server_->display(), {0, 0, 640, 480}, 4));
  const Program overlay(showElsewhere(server_->display(), {150, 0, 300, 480}, 3));
  Root::replace(std::make_unique<Root>(makePlatform()));
  (void)CapturableWindowManager::screens();
  std::shared_ptr<CapturableWindow> target;
  ASSERT_TRUE(serveUntil([&] {
    const auto listed = CapturableWindowManager::windows();
    if (listed.size() == 1) target = listed.front();
    return target && target->isOnScreen();
  }));
  EXPECT_EQ(target->windowID(), window.window);
  const CGRect there = target->frame();
  window.place = {static_cast<int>(there.origin.x),
                  static_cast<int>(480 - there.origin.y - there.size.height), 200, 150};
  const PaintedWindow menu = painter.show({window.place.x + 20, window.place.y + 20, 100, 90}, 2, 0, true);
  PaintedWindow lid = menu;
  lid.seed = 3;
  lid.place = {150, 0, 300, 480};

  const auto watcher = std::make_shared<Watcher>();
  /// Whether a frame comes in which the windows lie over one another like this, the first one at the back.
  const auto comes = [&](const std::vector<PaintedWindow>& windows) {
    return serveUntil([&] {
      const CVPixelBufferRef frame = watcher->last.copy();
      return frame && CVPixelBufferGetWidth(*frame) == 200 && CVPixelBufferGetHeight(*frame) == 150 &&
             qeltest::shows(CVPixelBufferGetBaseAddress(*frame), CVPixelBufferGetBytesPerRow(*frame), true,
                            window.place, windows, true);
    });
  };
  {
    // The pointer is part of a picture.
    const X11Connection::Use use(*painter.connection());
    xcb_warp_pointer(use, XCB_NONE, painter.connection()->root(), 0, 0, 0, 0, 639, 479);
  }
  painter.sync();
  target->start(watcher);
  EXPECT_TRUE(comes({window, menu}));
  constexpr int kMenuLevel = 101;
  CapturableWindowManager::setOverlay(kMenuLevel, overlay.process);
  EXPECT_TRUE(comes({window, lid, menu}));
  CapturableWindowManager::clearOverlay();
  EXPECT_TRUE(comes({window, menu}));
  target->stop();
  EXPECT_EQ(watcher->ends, 1);
  target.reset();
}

TEST_F(ManagedWindowCapture, goesOnWhenTheWindowManagerDiesAndAnotherOneComes) {
  const WindowPainter painter(server_->display());
  const PaintedWindow window = painter.show({50, 60, 200, 150}, 1);
  awaitManaged(painter);
  Root::replace(std::make_unique<Root>(makePlatform()));
  (void)CapturableWindowManager::screens();
  const auto listed = CapturableWindowManager::windows();
  ASSERT_EQ(listed.size(), 1U);
  const auto watcher = std::make_shared<Watcher>();
  const auto moreComes = [&] {
    const int before = watcher->frames;
    return serveUntil([&] { return watcher->frames > before + 1; });
  };
  listed.front()->start(watcher);
  EXPECT_TRUE(moreComes());
  for (int i = 0; i < 3; ++i) {
    manager_.reset();
    EXPECT_TRUE(moreComes());
    startManager();
    // Asks more often than a capture, to meet the window on its way from one manager to the other.
    while (!isManaged(painter)) {
      serve();
      EXPECT_EQ(CapturableWindowManager::windows(), listed);
    }
    EXPECT_TRUE(moreComes());
  }
  EXPECT_EQ(watcher->ends, 0);
  painter.destroy(window);
  EXPECT_TRUE(serveUntil([&] { return watcher->ends == 1; }));
}

/// Does something to one of the windows after the other, as fast as the server can.
void storm(const std::string& display, const std::atomic<bool>& isOver) {
  const WindowPainter painter(display);
  std::mt19937 random(7);
  const auto upTo = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); };
  std::vector<PaintedWindow> windows(12);
  while (!isOver) {
    PaintedWindow& window = windows[random() % windows.size()];
    const PixelRect place{upTo(600) - 100, upTo(500) - 100, 128 + upTo(120), 128 + upTo(120)};
    if (window.window == XCB_NONE) {
      window = painter.show(place, static_cast<std::uint32_t>(random()), upTo(3) == 0 ? 32 : 0, upTo(4) == 0);
      continue;
    }
    switch (upTo(12)) {
      case 0:
        painter.destroy(window);
        window = {};
        break;
      case 1:
        painter.unmap(window);
        break;
      case 2:
        painter.shape(window, {{upTo(50), upTo(50), 100, 100}, {0, 0, 20, 20}});
        break;
      case 3:
        painter.place(window, place);
        break;
      case 4:
        painter.setTitle(window, std::to_string(random()));
        break;
      default:
        painter.map(window);
    }
    // Windows that never stand still give no frames.
    std::this_thread::sleep_for(std::chrono::microseconds(upTo(20) == 0 ? 60'000 : 100));
  }
}

TEST_F(WindowCapture, survivesAStorm) {
  constexpr std::size_t kTargets = 8;
  const char* wanted = std::getenv("QEL_STORM_SECONDS");  // NOLINT(concurrency-mt-unsafe)
  const std::chrono::seconds length(wanted ? std::atoi(wanted) : 10);
  Root::replace(std::make_unique<Root>(makePlatform()));
  (void)CapturableWindowManager::screens();
  std::atomic<bool> isOver = false;
  std::thread stormy([&] { storm(server_->display(), isOver); });
  std::thread listing([&] {
    while (!isOver) (void)CapturableWindowManager::windows();
  });

  std::map<std::shared_ptr<CapturableWindow>, std::shared_ptr<Watcher>> running;
  std::vector<std::shared_ptr<Watcher>> watchers;
  for (const auto end = Clock::now() + length; Clock::now() < end; serve()) {
    std::erase_if(running, [](const auto& target) {
      if (target.second->ends == 0) return false;
      target.second->last.with([](CVPixelBufferRef& kept) { kept = nullptr; });
      return true;
    });
    if (running.size() == kTargets) continue;
    for (const auto& window : CapturableWindowManager::windows()) {
      if (running.size() == kTargets || running.contains(window)) continue;
      watchers.push_back(running[window] = std::make_shared<Watcher>());
      window->start(watchers.back());
    }
  }
  isOver = true;
  stormy.join();
  listing.join();
  for (const auto& [window, watcher] : running) window->stop();
  running.clear();
  serve();
  int frames = 0;
  for (const auto& watcher : watchers) {
    EXPECT_EQ(watcher->misshapen, 0);
    EXPECT_LE(watcher->ends, 1);
    EXPECT_GE(watcher->ends, watcher->starts);
    frames += watcher->frames;
  }
  EXPECT_GT(frames, 0);
  RecordProperty("sources", static_cast<int>(watchers.size()));
  RecordProperty("frames", frames);
}

/// A presentation program of this name, which does what it is told.
class SlideShow {
 public:
  explicit SlideShow(const std::string& name) {
    std::array<int, 2> there{}, back{};
    if (::pipe2(there.data(), O_CLOEXEC) != 0 || ::pipe2(back.data(), O_CLOEXEC) != 0) return;
    to_ = UniqueFD(there[1]), from_ = UniqueFD(back[0]);
    const UniqueFD input(there[0]), output(back[1]);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input.get(), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output.get(), STDOUT_FILENO);
    std::string path = QEL_TEST_PROGRAMS "/" + name;
    std::array<char*, 2> arguments{path.data(), nullptr};
    ::posix_spawn(&program_.process, path.c_str(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
  }
  /// What it answers; empty when it has ended.
  std::string answer() {
    std::string line;
    for (char c = 0; ::read(from_.get(), &c, 1) == 1 && c != '\n';) line += c;
    return line;
  }
  std::string tell(const std::string& command) {
    const std::string line = command + "\n";
    return ::write(to_.get(), line.data(), line.size()) > 0 ? answer() : "";
  }

 private:
  Program program_{-1};
  UniqueFD to_, from_;
};

/// Two displays; a presentation program on the first one, which shows its slides on the second one.
class SlideShowCapture : public WindowCapture, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (!PrivateXServer::isInstalled(PrivateXServer::Program::tigervnc)) {
      GTEST_SKIP() << "Xtigervnc is not installed, and this test starts one";
    }
    const std::string socket = testing::TempDir() + "qel_slides_" + std::to_string(::getpid());
    server_ = PrivateXServer::start(
        {.program = PrivateXServer::Program::tigervnc, .width = 640, .height = 480, .socket = socket});
    ASSERT_TRUE(server_);
    const auto outputs = qeltest::VncOutputs::open(socket);
    ASSERT_TRUE(outputs && outputs->arrange({{0, 0, 640, 480}, {640, 0, 320, 240}}));
    ::setenv("DISPLAY", server_->display().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    program_.emplace(GetParam());
    shared_ = program_->answer();
    Root::replace(std::make_unique<Root>(makePlatform()));
    ASSERT_EQ(CapturableWindowManager::screens().size(), 2U);
  }

  void TearDown() override {
    target_.reset();
    WindowCapture::TearDown();
  }

  /// Starts the program's window.
  void start() {
    ASSERT_TRUE(serveUntil([&] {
      for (const auto& window : CapturableWindowManager::windows()) {
        if (std::to_string(window->windowID()) == shared_) target_ = window;
      }
      return target_ != nullptr;
    }));
    target_->start(watcher_);
  }
  /// Whether a frame of that size comes, the target's bounds being that wide.
  [[nodiscard]] bool comes(std::size_t width, std::size_t height) {
    return serveUntil([&] {
      const CVPixelBufferRef frame = watcher_->last.copy();
      return frame && CVPixelBufferGetWidth(*frame) == width && CVPixelBufferGetHeight(*frame) == height &&
             target_->frame().size.width == static_cast<double>(width);
    });
  }

  std::optional<SlideShow> program_;
  std::string shared_;
  std::shared_ptr<Watcher> watcher_ = std::make_shared<Watcher>();
  std::shared_ptr<CapturableWindow> target_;
};

TEST_P(SlideShowCapture, followsTheSlidesAndComesBack) {
  const bool isWindowFirst = GetParam() == std::string("qel-window-first");
  start();
  EXPECT_TRUE(comes(200, 150));
  EXPECT_EQ(watcher_->interruptions, 0);

  // One that fills no display is no presentation.
  ASSERT_EQ(program_->tell("show 640 0 320 200"), "done");
  const int before = watcher_->frames;
  EXPECT_TRUE(serveUntil([&] { return watcher_->frames > before + 2; }) && comes(200, 150));
  ASSERT_EQ(program_->tell("hide"), "done");

  ASSERT_EQ(program_->tell("show 640 0 320 240"), "done");
  if (isWindowFirst) {
    const int shown = watcher_->frames;
    EXPECT_TRUE(serveUntil([&] { return watcher_->frames > shown + 2; }) && comes(200, 150));
    ASSERT_EQ(program_->tell("minimize"), "done");
  }
  EXPECT_TRUE(comes(320, 240));
  EXPECT_EQ(watcher_->interruptions, 1) << "until the bounds are stable";
  EXPECT_EQ(watcher_->resumptions, 1);

  if (isWindowFirst) {
    ASSERT_EQ(program_->tell("restore"), "done");
  }
  ASSERT_EQ(program_->tell("hide"), "done");
  EXPECT_TRUE(comes(200, 150));
  EXPECT_EQ(watcher_->interruptions, 2);
  EXPECT_EQ(watcher_->resumptions, 2);

  program_.reset();
  EXPECT_TRUE(serveUntil([&] { return watcher_->ends == 1; })) << "gone with its program";
}

INSTANTIATE_TEST_SUITE_P(kinds, SlideShowCapture, testing::Values("qel-slides-first", "qel-window-first"));

}  // namespace
}  // namespace QelUtilVideo
