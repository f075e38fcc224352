#pragma once

#include "platform/Dispatch.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <memory>
#include <utility>

namespace QelUtilVideo {

/// The real machine, except for the parts that a benchmark puts in their place.
class WrappedPlatform : public Platform {
 public:
  NotificationCenter& notificationCenter() override { return real_->notificationCenter(); }
  Clock& clock() override { return real_->clock(); }
  SystemVersion& systemVersion() override { return real_->systemVersion(); }
  UserDefaults& userDefaults() override { return real_->userDefaults(); }
  Bundle& bundle() override { return real_->bundle(); }
  SystemLog& systemLog() override { return real_->systemLog(); }
  Dispatch& dispatch() override { return real_->dispatch(); }
  Displays& displays() override { return real_->displays(); }
  DisplayLinks& displayLinks() override { return real_->displayLinks(); }
  WindowServer& windowServer() override { return real_->windowServer(); }
  CaptureDevices& captureDevices() override { return real_->captureDevices(); }
  Cursor& cursor() override { return real_->cursor(); }
  Views& views() override { return real_->views(); }
  Images& images() override { return real_->images(); }
  Metal& metal() override { return real_->metal(); }
  OpenGL& openGL() override { return real_->openGL(); }
  Diagnostics& diagnostics() override { return real_->diagnostics(); }

 protected:
  [[nodiscard]] Platform& real() { return *real_; }

 private:
  std::unique_ptr<Platform> real_ = makePlatform();
};

/// Puts the library on a machine of type `Machine`, with a root of its own, while it lives. Objects of the
/// library go before it does.
template <class Machine>
class ScopedMachine {
 public:
  ScopedMachine() {
    auto machine = std::make_unique<Machine>();
    machine_ = machine.get();
    before_ = Root::replace(std::make_unique<Root>(std::move(machine)));
  }
  ScopedMachine(const ScopedMachine&) = delete;
  ScopedMachine& operator=(const ScopedMachine&) = delete;
  ~ScopedMachine() { Root::replace(std::move(before_)); }

  [[nodiscard]] Machine* operator->() const { return machine_; }

 private:
  Machine* machine_ = nullptr;
  std::unique_ptr<Root> before_;
};

}  // namespace QelUtilVideo
