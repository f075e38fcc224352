#include "capture/windowlist/Target.h"

#include "capture/windowlist/Session.h"
#include "log/Log.h"

#include <utility>

namespace QelUtilVideo::windowlist {

Target::Target(Platform& platform, std::string logName) : platform_(platform), logName_(std::move(logName)) {}

Target::~Target() { tearDownSession(); }

std::shared_ptr<Session> Target::session() const {
  return state_.with([](const State& state) { return state.session; });
}

std::shared_ptr<CapturableOutputDelegate> Target::delegate() const {
  return state_.with([](const State& state) { return state.delegate.lock(); });
}

void Target::setDelegate(const std::shared_ptr<CapturableOutputDelegate>& delegate) {
  state_.with([&](State& state) { state.delegate = delegate; });
}

bool Target::start(const std::shared_ptr<CapturableOutputDelegate>& delegate, NSError* /*error*/) {
  const auto self = shared_from_this();  // the host may let go of it while it is told
  log(LogLevel::info, logName_ + " start");
  auto current = state_.with([&](State& state) {
    state.delegate = delegate;
    return state.session;
  });
  while (!current || !current->start()) {
    // There is none, or an error has ended it.
    const auto fresh =
        Session::make(platform_, std::shared_ptr<CaptureSource>(shared_from_this(), this), logName_);
    current = replaceSession(current, fresh, delegate);
    if (current != fresh) continue;  // another thread was quicker
    fresh->start();                  // if one has stopped it already, it stays stopped
    break;
  }
  return true;
}

void Target::stop() {
  const auto self = shared_from_this();
  log(LogLevel::info, logName_ + " stop");
  const auto stopped = session();
  if (stopped) stopped->stop(nullptr);
  state_.with([&](State& state) {
    // A host that starts again while it is told of the end has put a new session in place: it stands.
    if (state.session != stopped) return;
    state.session = nullptr;
    state.delegate.reset();
  });
}

Result<CVPixelBufferRef> Target::capture() { fatal("subclass responsibility"); }

void Target::tearDownSession() {
  if (const auto left = session()) left->tearDown();
}

std::shared_ptr<Session> Target::replaceSession(const std::shared_ptr<Session>& ended,
                                                const std::shared_ptr<Session>& fresh,
                                                const std::shared_ptr<CapturableOutputDelegate>& delegate) {
  return state_.with([&](State& state) {
    // After a stop by another thread there is none in place, whatever there was before.
    if (!state.session || state.session == ended) state.session = fresh;
    state.delegate = delegate;
    return state.session;
  });
}

}  // namespace QelUtilVideo::windowlist
