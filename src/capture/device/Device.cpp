#include "capture/device/Device.h"

#include "log/Log.h"

#include <utility>

namespace QelUtilVideo::device {

Device::Device(Root& root, std::string logName) : root_(root), logName_(std::move(logName)) {}

Device::~Device() = default;

std::shared_ptr<Session> Device::session() const {
  return state_.with([](const State& state) { return state.session; });
}

std::shared_ptr<CapturableOutputDelegate> Device::delegate() const {
  return state_.with([](const State& state) { return state.delegate.lock(); });
}

void Device::setDelegate(const std::shared_ptr<CapturableOutputDelegate>& delegate) {
  state_.with([&](State& state) { state.delegate = delegate; });
}

Result<std::shared_ptr<Session>> Device::makeSession() { fatal("subclass responsibility"); }

Result<std::shared_ptr<Session>> Device::makeSessionOf(std::shared_ptr<AVCaptureInput> input) {
  const std::shared_ptr<SessionDelegate> self(shared_from_this(), this);
  return Session::make(root_, std::move(input), self, events_, logName_);
}

bool Device::start(const std::shared_ptr<CapturableOutputDelegate>& delegate, NSError* error) {
  const auto self = shared_from_this();  // the host may let go of it while it is told
  log(LogLevel::info, logName_ + " start");
  auto session = state_.with([&](State& state) {
    state.delegate = delegate;
    return state.session;
  });
  if (!session) {
    auto made = makeSession();
    if (!made.hasValue()) {
      if (error) *error = made.error();
      return false;
    }
    session = state_.with([&](State& state) {
      if (!state.session) state.session = made.value();
      return state.session;  // another thread may have been quicker
    });
  }
  session->start();
  return true;
}

void Device::stop() {
  const auto self = shared_from_this();
  log(LogLevel::info, logName_ + " stop");
  // A host that starts again while it is told of the end gets another session.
  const auto stopped = state_.with([](State& state) { return std::exchange(state.session, nullptr); });
  if (stopped) stopped->stop();
  state_.with([](State& state) {
    if (!state.session) state.delegate.reset();
  });
}

void Device::stopAtOnce() {
  if (const auto left = session()) left->session()->stopRunning();
}

}  // namespace QelUtilVideo::device
