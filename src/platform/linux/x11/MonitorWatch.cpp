#include "platform/linux/x11/MonitorWatch.h"

#include <algorithm>
#include <utility>

namespace QelUtilVideo {

namespace {

using Seconds = std::chrono::duration<double>;

/// One change of the arrangement arrives as several events; it is over when this long none came.
constexpr Seconds kQuiet{0.1};
/// Changes that never end are reported all the same.
constexpr Seconds kLongestBurst{0.5};

std::shared_ptr<NSScreen> screenOf(const Monitor& monitor, double primaryHeight) {
  NSScreen::Properties properties;
  properties.deviceDescription.set("NSScreenNumber", monitor.displayID);
  properties.localizedName = monitor.name;
  properties.frame = monitor.bounds();
  properties.frame.origin.y = primaryHeight - CGRectGetMaxY(monitor.bounds());
  properties.maximumFramesPerSecond = monitor.refreshRate;
  return std::make_shared<NSScreen>(std::move(properties));
}

std::vector<std::shared_ptr<NSScreen>> screensOf(const std::vector<Monitor>& monitors) {
  std::vector<std::shared_ptr<NSScreen>> screens;
  for (const Monitor& monitor : monitors) screens.push_back(screenOf(monitor, monitors.front().height));
  return screens;
}

}  // namespace

const Monitor* MonitorWatch::Arrangement::find(std::uint32_t displayID) const {
  const auto found = std::ranges::find(monitors, displayID, &Monitor::displayID);
  return found == monitors.end() ? nullptr : &*found;
}

std::shared_ptr<MonitorWatch> MonitorWatch::make(std::shared_ptr<X11Connection> connection, EventLoop& loop,
                                                 std::function<void()> changed, TroubleHandler trouble) {
  struct Watch : MonitorWatch {
    Watch(std::shared_ptr<X11Connection> server, EventLoop& mainLoop, std::function<void()> told,
          TroubleHandler complain)
        : MonitorWatch(std::move(server), mainLoop, std::move(told), std::move(complain)) {}
  };
  const auto watch =
      std::make_shared<Watch>(std::move(connection), loop, std::move(changed), std::move(trouble));
  watch->begin();
  return watch;
}

MonitorWatch::MonitorWatch(std::shared_ptr<X11Connection> connection, EventLoop& loop,
                           std::function<void()> changed, TroubleHandler trouble)
    : connection_(std::move(connection)),
      loop_(loop),
      changed_(std::move(changed)),
      trouble_(std::move(trouble)) {}

void MonitorWatch::begin() {
  connection_->addSink(weak_from_this());
  // Asked for first, so that no change falls between the list and the watch.
  selection_ = watchMonitors(connection_);
  (void)current();
  (void)takeUnreported();
}

void MonitorWatch::stop() {
  const MutexLock lock(mutex_);
  isStopped_ = true;
}

std::shared_ptr<const MonitorWatch::Arrangement> MonitorWatch::current() {
  { const X11Connection::Use events(*connection_); }
  std::uint64_t generation = 0;
  {
    const MutexLock lock(mutex_);
    if (arrangement_->generation == generation_) return arrangement_;
    generation = generation_;
  }
  auto listed = std::make_shared<Arrangement>();
  listed->monitors = listMonitors(*connection_);
  listed->generation = generation;

  const MutexLock lock(mutex_);
  if (arrangement_->generation >= generation) return arrangement_;
  const bool isSame = listed->monitors == arrangement_->monitors;
  listed->screens = isSame ? arrangement_->screens : screensOf(listed->monitors);
  arrangement_ = std::move(listed);
  isUnreported_ = isUnreported_ || arrangement_->monitors != reported_;
  return arrangement_;
}

void MonitorWatch::handleEvent(const xcb_generic_event_t& event) {
  if (concernsMonitors(*connection_, event)) noteChange();
}

void MonitorWatch::handleLoss() {
  {
    const MutexLock lock(mutex_);
    if (std::exchange(isLost_, true)) return;
  }
  if (trouble_) trouble_("The connection to the X server is lost");
  noteChange();
}

void MonitorWatch::noteChange() {
  {
    const MutexLock lock(mutex_);
    generation_ += 1;
    lastChange_ = std::chrono::steady_clock::now();
    if (isStopped_ || std::exchange(isSettling_, true)) return;
    if (!isUnreported_) firstChange_ = lastChange_;
  }
  startTimer(kQuiet);
}

void MonitorWatch::settle() {
  if (const std::optional<Seconds> delay = timeToSettle()) return startTimer(*delay);
  (void)current();
  // What came while it was listed may be half of a change again.
  if (!isStillChanging() && takeUnreported()) changed_();
}

bool MonitorWatch::isStillChanging() {
  const MutexLock lock(mutex_);
  return isSettling_ && std::chrono::steady_clock::now() - firstChange_ < kLongestBurst;
}

bool MonitorWatch::takeUnreported() {
  const MutexLock lock(mutex_);
  reported_ = arrangement_->monitors;
  return std::exchange(isUnreported_, false) && !isStopped_;
}

std::optional<Seconds> MonitorWatch::timeToSettle() {
  using Span = std::chrono::steady_clock::duration;
  const MutexLock lock(mutex_);
  const Time due = std::min(lastChange_ + std::chrono::duration_cast<Span>(kQuiet),
                            firstChange_ + std::chrono::duration_cast<Span>(kLongestBurst));
  const Seconds left = due - std::chrono::steady_clock::now();
  if (left > Seconds::zero()) return left;
  isSettling_ = false;
  return std::nullopt;
}

void MonitorWatch::startTimer(Seconds delay) {
  loop_.start(delay.count(), 0, 0, [weak = weak_from_this()] {
    if (const auto watch = weak.lock()) watch->settle();
  });
}

}  // namespace QelUtilVideo
