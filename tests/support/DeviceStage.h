#pragma once

#include "capture/RecordingDelegate.h"
#include "platform/Platform.h"
#include "platform/Root.h"
#include "support/simulated/LogCapture.h"

#include <QelUtilVideo/platform/MainLoop.h>

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace QelUtilVideo {

/// Devices of the real platform, a main loop that the test serves, and a host that takes notes.
class DeviceStage : public testing::Test {
 protected:
  /// From here on the library stands on the machine as it is now.
  void begin() {
    Root::replace(std::make_unique<Root>(makePlatform()));
    log_.emplace();
  }
  /// A derived test drops its devices first.
  void TearDown() override {
    if (!log_) return;
    // Sessions stop in their own time, and need the root for it.
    EXPECT_TRUE(serveUntil([&] { return count(" session init") == count(" session deinit"); }));
    log_.reset();
    Root::replace(nullptr);
    Root::replace(nullptr);  // the one that was made when the last devices said that they go
  }
  static bool serveUntil(const std::function<bool()>& isSo) {
    using namespace std::chrono_literals;
    for (const auto end = std::chrono::steady_clock::now() + 10s; !isSo();) {
      if (std::chrono::steady_clock::now() > end) return false;
      pollfd entry{MainLoop::main().fileDescriptor(), POLLIN, 0};
      ::poll(&entry, 1, 10);
      MainLoop::main().dispatchPending();
    }
    return true;
  }
  /// Lines of the log that end so.
  [[nodiscard]] std::ptrdiff_t count(const std::string& ending) const {
    return std::ranges::count_if(log_->messages(),
                                 [&](const std::string& line) { return line.ends_with(ending); });
  }
  [[nodiscard]] bool moreComes(int frames = 2) const {
    const std::size_t wanted = delegate_->timestamps().size() + static_cast<std::size_t>(frames);
    return serveUntil([&] { return delegate_->timestamps().size() >= wanted; });
  }
  /// Whether the host is told something that begins so.
  [[nodiscard]] bool comes(const std::string& event) const {
    return serveUntil([&] {
      return std::ranges::any_of(delegate_->events(),
                                 [&](const auto& told) { return told.starts_with(event); });
    });
  }
  /// A byte of a plane of the last frame.
  [[nodiscard]] int byteAt(std::size_t plane, std::size_t x, std::size_t y) const {
    const auto frame = delegate_->lastFrame();
    const PixelPlane& rows = frame->planes()[plane];
    return std::to_integer<int>(rows.baseAddress[y * rows.bytesPerRow + x]);
  }

  std::optional<LogCapture> log_;
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
};

}  // namespace QelUtilVideo
