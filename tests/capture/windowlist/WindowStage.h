#pragma once

#include "capture/windowlist/Window.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <QelUtilVideo/CapturableWindowManager.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace QelUtilVideo::windowlist {

/// A display of 1000 × 800 points with windows on it, front to back.
class WindowStage : public testing::Test {
 protected:
  using Windows = std::vector<std::shared_ptr<CapturableWindow>>;

  WindowStage() { machine->displays().set({{.id = 7, .bounds = CGRectMake(0, 0, 1000, 800)}}); }

  [[nodiscard]] SimulatedWindowServer& server() const { return machine->windowServer(); }
  static std::vector<CGWindowID> listed() {
    std::vector<CGWindowID> numbers;
    for (const auto& window : CapturableWindowManager::windows()) numbers.push_back(window->windowID());
    return numbers;
  }
  /// The listed target of that number; null when it is not listed.
  static std::shared_ptr<Window> target(CGWindowID number) {
    for (const auto& window : CapturableWindowManager::windows()) {
      if (window->windowID() == number) return std::dynamic_pointer_cast<Window>(window);
    }
    return nullptr;
  }

  ScopedMachine machine;
  LogCapture log;
};

}  // namespace QelUtilVideo::windowlist
