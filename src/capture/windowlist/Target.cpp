#include "capture/windowlist/Target.h"

#include "capture/windowlist/Session.h"
#include "log/Log.h"

#include <utility>

namespace QelUtilVideo::windowlist {

Target::Target(Platform& platform, std::string logName) : platform_(platform), logName_(std::move(logName)) {}

Target::~Target() { tearDownSession(); }

std::shared_ptr<Session> Target::session() const { return state_.copy().session; }

std::shared_ptr<CapturableOutputDelegate> Target::delegate() const { return state_.copy().delegate.lock(); }

void Target::setDelegate(const std::shared_ptr<CapturableOutputDelegate>& delegate) {
  state_.with([&](State& state) { state.delegate = delegate; });
}

bool Target::start(const std::shared_ptr<CapturableOutputDelegate>& delegate, NSError* /*error*/) {
  const auto self = shared_from_this();  // the host may let go of it while it is told
  log(LogLevel::info, logName_ + " start");
  setDelegate(delegate);
  sessionToStart()->start();
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

/// A session that ended by itself, because of an error, is of no more use.
std::shared_ptr<Session> Target::sessionToStart() {
  auto current = session();
  if (current && !current->hasEnded()) return current;
  auto fresh = Session::make(platform_, std::shared_ptr<CaptureSource>(shared_from_this(), this), logName_);
  state_.with([&](State& state) { state.session = fresh; });
  return fresh;
}

}  // namespace QelUtilVideo::windowlist
