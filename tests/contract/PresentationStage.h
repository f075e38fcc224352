#pragma once

#include "contract/TestCard.h"
#include "platform/Clock.h"
#include "platform/OpenGL.h"
#include "platform/Platform.h"
#include "platform/Root.h"
#include "platform/Synchronised.h"
#include "platform/linux/vulkan/VulkanMetal.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedServices.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/NSColor.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// The machine as it is, but for a clock that can be held, settings of the test's, and ears for what Vulkan's
/// validation layers say.
class WatchedPlatform final : public Platform {
 public:
  Dispatch& dispatch() override { return machine_->dispatch(); }
  NotificationCenter& notificationCenter() override { return machine_->notificationCenter(); }
  Clock& clock() override { return clock_; }
  SystemVersion& systemVersion() override { return machine_->systemVersion(); }
  SimulatedUserDefaults& userDefaults() override { return userDefaults_; }
  Bundle& bundle() override { return machine_->bundle(); }
  SystemLog& systemLog() override { return machine_->systemLog(); }
  Displays& displays() override { return machine_->displays(); }
  DisplayLinks& displayLinks() override { return machine_->displayLinks(); }
  WindowServer& windowServer() override { return machine_->windowServer(); }
  CaptureDevices& captureDevices() override { return machine_->captureDevices(); }
  Cursor& cursor() override { return machine_->cursor(); }
  Views& views() override { return machine_->views(); }
  Images& images() override { return machine_->images(); }
  Metal& metal() override { return metal_; }
  OpenGL& openGL() override { return machine_->openGL(); }
  Diagnostics& diagnostics() override { return machine_->diagnostics(); }

  /// From here on it is always so many seconds past the present.
  void holdClock(double seconds) { clock_.held = clock_.machine.CACurrentMediaTime() + seconds; }
  void moveClock(double seconds) { clock_.held = clock_.held + seconds; }
  /// What Vulkan or its validation layers had to say since.
  [[nodiscard]] std::vector<std::string> takeTrouble() {
    return trouble_.with([](auto& all) { return std::exchange(all, {}); });
  }

 private:
  struct HeldClock final : Clock {
    explicit HeldClock(Clock& real) : machine(real) {}
    [[nodiscard]] double CACurrentMediaTime() override {
      return held > 0 ? held.load() : machine.CACurrentMediaTime();
    }
    Clock& machine;
    std::atomic<double> held = 0;
  };

  const std::unique_ptr<Platform> machine_ = makePlatform();
  HeldClock clock_{machine_->clock()};
  SimulatedUserDefaults userDefaults_;
  Synchronised<std::vector<std::string>> trouble_;
  VulkanMetal metal_{
      [this] { return bundle().pathForResource("shaders.lib"); },
      [this](const std::string& text) { trouble_.with([&](auto& all) { all.push_back(text); }); }};
};

enum class PresentedBy : std::uint8_t { metal, openGL };

/// A view on the machine's own drivers, drawn by the backend that the test is run for.
class PresentationStage : public testing::TestWithParam<PresentedBy> {
 protected:
  static constexpr Color kBackground{51, 102, 153};

  void SetUp() override { begin(); }
  void TearDown() override {
    view.reset();
    window.reset();
    // Drawing threads let go of views in their own time, and need the machine for it.
    EXPECT_TRUE(serveUntil([&] { return lines(" init(frame:)") == lines("] deinit"); }));
    EXPECT_TRUE(serveUntil([&] { return openGLViews() == lines(" layer deinit"); }));
    EXPECT_THAT(machine_->takeTrouble(), testing::IsEmpty());
    EXPECT_THAT(log_->messages(LogLevel::error), testing::IsEmpty());
    log_.reset();
    buffer.reset();
    Root::replace(nullptr);
    Root::replace(nullptr);  // the one that was made when the last objects said that they go
  }
  /// From here on the library stands on the machine as it is now.
  void begin() {
    auto machine = std::make_unique<WatchedPlatform>();
    machine_ = machine.get();
    Root::replace(std::make_unique<Root>(std::move(machine)));
    log_.emplace();
    choose(GetParam());
    const bool isThere = GetParam() == PresentedBy::metal
                             ? machine_->metal().MTLCreateSystemDefaultDevice() != nullptr
                             : machine_->openGL().makeContext({}, nullptr) != nullptr;
    if (!isThere) GTEST_SKIP() << "this machine has no driver for it, not even a software one";
  }
  /// What the next view is drawn by.
  void choose(PresentedBy backend) {
    machine_->userDefaults().set("QelUtilVideoRenderViewMetalDisabled", backend == PresentedBy::openGL);
  }
  [[nodiscard]] std::ptrdiff_t lines(const std::string& ending) const {
    return std::ranges::count_if(log_->messages(),
                                 [&](const std::string& line) { return line.ends_with(ending); });
  }
  [[nodiscard]] std::ptrdiff_t openGLViews() const {
    return std::ranges::count_if(log_->messages(), [](const std::string& line) {
      return line.starts_with("[RenderView:OpenGL") && line.ends_with(" init(frame:)");
    });
  }
  static void serve() {
    for (int turn = 0; turn < 3; ++turn) MainLoop::main().dispatchPending();
  }
  static bool serveUntil(const std::function<bool()>& isSo) {
    using namespace std::chrono_literals;
    for (const auto end = std::chrono::steady_clock::now() + 10s; !isSo();) {
      if (std::chrono::steady_clock::now() > end) return false;
      pollfd entry{MainLoop::main().fileDescriptor(), POLLIN, 0};
      ::poll(&entry, 1, 5);
      MainLoop::main().dispatchPending();
    }
    return true;
  }
  /// Fills the window with a view of the buffer's frames.
  void fill(std::shared_ptr<NSWindow> with) {
    window = std::move(with);
    view = RenderView::make(window->contentView()->bounds());
    view->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
    view->setBackgroundColor(
        NSColor::deviceRGB(kBackground[0] / 255, kBackground[1] / 255, kBackground[2] / 255));
    view->setImageBuffer(buffer);
    view->setFitInBounds(true);
    window->contentView()->addSubview(view);
  }
  void show(const TestCard& card, CGImagePropertyOrientation orientation = CGImagePropertyOrientation::up) {
    buffer->setImage(card.pixels(), now_ += 1, orientation);
  }
  /// Waits until the picture shows the card as it should; else says what is wrong.
  static void expectShown(const std::function<CGImageRef()>& picture, PixelCount size, const TestCard& card,
                          const Showing& showing) {
    std::string fault;
    EXPECT_TRUE(serveUntil([&] {
      fault = faultIn(picture(), size, card, showing, kBackground);
      return fault.empty();
    })) << "orientation "
        << static_cast<int>(showing.orientation) << (showing.fit ? ", fit: " : ", cover: ") << fault;
  }
  void expectShown(PixelCount size, const TestCard& card, const Showing& showing) {
    expectShown([this] { return window->image(); }, size, card, showing);
  }

  WatchedPlatform* machine_ = nullptr;
  std::optional<LogCapture> log_;
  std::shared_ptr<NSWindow> window;
  std::shared_ptr<RenderView> view;
  std::shared_ptr<QelKit::QelVideoImageBuffer> buffer = std::make_shared<QelKit::QelVideoImageBuffer>();
  double now_ = 0;
};

inline std::string nameOf(const testing::TestParamInfo<PresentedBy>& info) {
  return info.param == PresentedBy::metal ? "Metal" : "OpenGL";
}

}  // namespace QelUtilVideo
