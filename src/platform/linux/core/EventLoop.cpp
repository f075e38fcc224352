#include "platform/linux/core/EventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

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

/// Takes the count of an event or timer descriptor, so that it is no longer readable.
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
  if (!complete && trouble_) trouble_("The main loop cannot wait: no descriptors are left");
}

EventLoop::~EventLoop() = default;

bool EventLoop::watch(int fd, std::function<void()> handler) {
  settleMainThread();
  auto shared = std::make_shared<const Handler>(std::move(handler));
  const std::lock_guard lock(mutex_);
  if (!addTo(epoll_.get(), fd)) return false;
  std::swap(watched_[fd], shared);
  return true;
}

void EventLoop::unwatch(int fd) {
  std::shared_ptr<const Handler> released;
  const std::lock_guard lock(mutex_);
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
  while (!takeStop()) turn(Wait::yes);
  // The stop's signal, when nothing else is behind it.
  const std::lock_guard lock(mutex_);
  if (blocks_.empty() && stops_ == 0) drain(wake_.get());
}

void EventLoop::stop() {
  settleMainThread();
  stops_ += 1;
  signal();
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
  {
    const std::lock_guard lock(mutex_);
    blocks_.push_back(std::move(block));
    if (blocks_.size() > 1) return;
  }
  signal();
}

void EventLoop::after(double seconds, std::function<void()> block) {
  start(seconds, 0, 0, [this, block = std::move(block)] { async(block); });
}

TimerClock::Token EventLoop::start(double delay, double interval, double leeway,
                                   std::function<void()> fired) {
  settleMainThread();
  const std::lock_guard lock(mutex_);
  const Token token =
      timers_.add(std::chrono::steady_clock::now(), delay, interval, leeway, std::move(fired));
  armTimer();
  return token;
}

void EventLoop::stop(Token token) {
  TimerHeap::Function released;
  const std::lock_guard lock(mutex_);
  released = timers_.remove(token);
  armTimer();
}

void EventLoop::turn(Wait wait) {
  std::array<epoll_event, 16> events;
  const int count =
      ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), wait == Wait::yes ? -1 : 0);
  const bool cannotWait = count < 0 && errno != EINTR;
  if (cannotWait && wait == Wait::yes) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  bool timersDue = cannotWait;
  for (int i = 0; i < count; ++i) {
    const int fd = events[static_cast<std::size_t>(i)].data.fd;
    if (fd == wake_.get()) {
      drain(fd);
    } else if (fd == timer_.get()) {
      drain(fd);
      timersDue = true;
    } else {
      serve(fd);
    }
  }
  if (timersDue) fireTimers();
  runBlocks(wait);
}

void EventLoop::serve(int fd) {
  std::shared_ptr<const Handler> handler;
  {
    const std::lock_guard lock(mutex_);
    const auto found = watched_.find(fd);
    if (found == watched_.end()) return;
    handler = found->second;
  }
  callSafely(trouble_, "The handler of a watched descriptor", *handler);
}

void EventLoop::fireTimers() {
  std::vector<TimerHeap::Function> due;
  {
    const std::lock_guard lock(mutex_);
    due = timers_.takeDue(std::chrono::steady_clock::now());
    armTimer();
  }
  for (const auto& fired : due) callSafely(trouble_, "A timer", fired);
}

void EventLoop::runBlocks(Wait wait) {
  std::size_t ready = 0;
  {
    const std::lock_guard lock(mutex_);
    ready = blocks_.size();
  }
  for (; ready > 0 && (wait == Wait::no || stops_ == 0); --ready) {
    Handler block;
    {
      // A nested turn may have taken some.
      const std::lock_guard lock(mutex_);
      if (blocks_.empty()) return;
      block = std::move(blocks_.front());
      blocks_.pop_front();
    }
    callSafely(trouble_, "A block on the main queue", block);
  }
  const std::lock_guard lock(mutex_);
  if (!blocks_.empty()) signal();
}

void EventLoop::signal() {
  const std::uint64_t one = 1;
  while (::write(wake_.get(), &one, sizeof one) < 0 && errno == EINTR) {
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
}

bool EventLoop::takeStop() {
  int stops = stops_;
  while (stops > 0) {
    if (stops_.compare_exchange_weak(stops, stops - 1)) return true;
  }
  return false;
}

}  // namespace QelUtilVideo
