#include "platform/linux/core/StreamThread.h"

#include "platform/linux/core/SignalsBlocked.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace QelUtilVideo {

StreamThread::Stop::Stop() : asked_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!asked_) throw std::system_error(errno, std::generic_category(), "eventfd");
}

bool StreamThread::Stop::sleepUntil(Time time) const {
  using namespace std::chrono;
  for (;;) {
    const auto left = std::max(time - steady_clock::now(), steady_clock::duration::zero());
    const auto whole = duration_cast<seconds>(left);
    const timespec patience{whole.count(), duration_cast<nanoseconds>(left - whole).count()};
    pollfd entry{asked_.get(), POLLIN, 0};
    const int ready = ::ppoll(&entry, 1, &patience, nullptr);
    if (ready >= 0) return ready == 0;
  }
}

void StreamThread::Stop::ask() const { (void)::eventfd_write(asked_.get(), 1); }

StreamThread::StreamThread(std::function<void(const Stop&)> run) {
  const SignalsBlocked blocked;
  thread_ = std::thread([stop = stop_, run = std::move(run)] { run(*stop); });
}

StreamThread::~StreamThread() {
  stop_->ask();
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

}  // namespace QelUtilVideo
