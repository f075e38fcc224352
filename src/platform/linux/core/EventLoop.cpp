#include "platform/linux/core/EventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <utility>

namespace QelUtilVideo {
namespace {

bool isInitialThread() {
  thread_local const bool initial = ::gettid() == ::getpid();
  return initial;
}

bool addTo(int epoll, int fd) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = fd;
  return ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0 || errno == EEXIST;
}

/// Makes an event descriptor readable.
void makeReadable(int fd) {
  const std::uint64_t one = 1;
  while (::write(fd, &one, sizeof one) < 0 && errno == EINTR) {
  }
}

/// Takes an event descriptor's count, so that it is no longer readable.
void drain(int fd) {
  std::uint64_t count = 0;
  while (::read(fd, &count, sizeof count) < 0 && errno == EINTR) {
  }
}

}  // namespace

EventLoop::EventLoop(TroubleHandler trouble)
    : trouble_(std::move(trouble)),
      epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  const bool complete =
      epoll_ && wake_ && timer_ && addTo(epoll_.get(), wake_.get()) && addTo(epoll_.get(), timer_.get());
  if (complete) return;
  // All or nothing: a loop that waits on some of them would miss the others' work.
  for (UniqueFD* descriptor : {&epoll_, &wake_, &timer_}) descriptor->reset();
  if (trouble_) trouble_("The main loop cannot watch descriptors: none are left for it");
}

EventLoop::~EventLoop() = default;

void EventLoop::forgetWork() {
  // What goes with them may leave new work behind.
  for (bool isDone = false; !isDone;) {
    std::deque<Handler> blocks;
    TimerTable timers;
    {
      const MutexLock lock(mutex_);
      blocks.swap(blocks_);
      std::swap(timers, timers_);
    }
    isDone = blocks.empty() && timers.empty();
  }
}

bool EventLoop::watch(int fd, std::function<void()> handler) {
  settleMainThread();
  auto shared = std::make_shared<const Handler>(std::move(handler));
  const MutexLock lock(mutex_);
  if (!addTo(epoll_.get(), fd)) return false;
  std::swap(watched_[fd], shared);
  return true;
}

void EventLoop::unwatch(int fd) {
  std::shared_ptr<const Handler> released;
  const MutexLock lock(mutex_);
  const auto found = watched_.find(fd);
  if (found == watched_.end()) return;
  released = std::move(found->second);
  watched_.erase(found);
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
}

bool EventLoop::bindToCurrentThread() {
  if (settled_.exchange(true)) return false;
  boundThread_ = std::this_thread::get_id();
  return true;
}

bool EventLoop::isMainThread() const {
  settleMainThread();
  const std::thread::id bound = boundThread_;
  return bound == std::thread::id() ? isInitialThread() : bound == std::this_thread::get_id();
}

void EventLoop::run() {
  if (!isMainThread()) return;
  {
    const MutexLock lock(mutex_);
    runs_ += 1;
    updateWake();
  }
  while (!takeStop()) turn(Wait::yes);
}

void EventLoop::stop() {
  settleMainThread();
  const MutexLock lock(mutex_);
  stops_ = std::min(stops_ + 1, std::max(runs_, 1));
  updateWake();
}

int EventLoop::fileDescriptor() const {
  settleMainThread();
  return epoll_.get();
}

void EventLoop::dispatchPending() {
  if (isMainThread()) turn(Wait::no);
}

void EventLoop::async(std::function<void()> block) {
  settleMainThread();
  const MutexLock lock(mutex_);
  blocks_.push_back(std::move(block));
  updateWake();
}

void EventLoop::after(double seconds, std::function<void()> block) {
  start(seconds, 0, 0, [this, block = std::move(block)] { async(block); });
}

TimerClock::Token EventLoop::start(double delay, double interval, double leeway,
                                   std::function<void()> fired) {
  settleMainThread();
  const MutexLock lock(mutex_);
  const Token token =
      timers_.add(std::chrono::steady_clock::now(), delay, interval, leeway, std::move(fired));
  armTimer();
  return token;
}

void EventLoop::stop(Token token) {
  TimerTable::Function released;
  const MutexLock lock(mutex_);
  released = timers_.remove(token);
  armTimer();
}

void EventLoop::turn(Wait wait) {
  std::array<epoll_event, 16> events;
  const int count =
      ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), wait == Wait::yes ? -1 : 0);
  const bool cannotWait = count < 0 && errno != EINTR;
  bool timersDue = cannotWait && waitWithoutDescriptors(wait);
  for (int i = 0; i < count; ++i) {
    const int fd = events[static_cast<std::size_t>(i)].data.fd;
    if (fd == timer_.get()) {
      timersDue = true;
    } else if (fd != wake_.get()) {
      serve(fd);
    }
  }
  if (timersDue) fireTimers();
  runBlocks(wait);
}

bool EventLoop::waitWithoutDescriptors(Wait wait) {
  const MutexLock lock(mutex_);
  for (;;) {
    const auto wakeTime = timers_.wakeTime();
    if (wakeTime && *wakeTime <= std::chrono::steady_clock::now()) return true;
    if (wait == Wait::no || isWakeSet_) return false;
    if (wakeTime) {
      changed_.wait_until(mutex_, *wakeTime);
    } else {
      changed_.wait(mutex_);
    }
  }
}

void EventLoop::serve(int fd) {
  std::shared_ptr<const Handler> handler;
  {
    const MutexLock lock(mutex_);
    const auto found = watched_.find(fd);
    if (found == watched_.end()) return;
    handler = found->second;
  }
  callSafely(trouble_, "The handler of a watched descriptor", *handler);
}

void EventLoop::fireTimers() {
  const auto now = std::chrono::steady_clock::now();
  while (const auto fired = takeTimer(now)) callSafely(trouble_, "A timer", *fired);
}

std::optional<TimerTable::Function> EventLoop::takeTimer(TimerTable::Time now) {
  const MutexLock lock(mutex_);
  auto due = timers_.takeDue(now);
  armTimer();
  return due;
}

void EventLoop::runBlocks(Wait wait) {
  std::size_t ready = 0;
  {
    const MutexLock lock(mutex_);
    ready = blocks_.size();
  }
  for (; ready > 0; --ready) {
    const std::optional<Handler> block = takeBlock(wait);
    if (!block) return;
    callSafely(trouble_, "A block on the main queue", *block);
  }
}

std::optional<EventLoop::Handler> EventLoop::takeBlock(Wait wait) {
  const MutexLock lock(mutex_);
  // A nested turn may have taken some.
  if (blocks_.empty() || (wait == Wait::yes && stops_ > 0)) return std::nullopt;
  std::optional<Handler> block(std::move(blocks_.front()));
  blocks_.pop_front();
  updateWake();
  return block;
}

bool EventLoop::takeStop() {
  const MutexLock lock(mutex_);
  if (stops_ == 0) return false;
  stops_ -= 1;
  runs_ -= 1;
  updateWake();
  return true;
}

void EventLoop::updateWake() {
  const bool isWanted = !blocks_.empty() || (stops_ > 0 && runs_ > 0);
  if (std::exchange(isWakeSet_, isWanted) == isWanted) return;
  if (isWanted) {
    makeReadable(wake_.get());
    changed_.notify_all();
  } else {
    drain(wake_.get());
  }
}

void EventLoop::armTimer() {
  itimerspec when{};
  if (const auto wake = timers_.wakeTime()) {
    const auto time = std::chrono::duration_cast<std::chrono::nanoseconds>(wake->time_since_epoch());
    when.it_value.tv_sec = static_cast<std::time_t>(time.count() / 1'000'000'000);
    when.it_value.tv_nsec = static_cast<long>(time.count() % 1'000'000'000);
  }
  ::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &when, nullptr);
  changed_.notify_all();
}

}  // namespace QelUtilVideo
