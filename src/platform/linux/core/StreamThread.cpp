#include "platform/linux/core/StreamThread.h"

#include "platform/linux/core/SignalsBlocked.h"

#include <utility>

namespace QelUtilVideo {

bool StreamThread::Stop::sleepUntil(Time time) {
  const MutexLock lock(mutex_);
  while (!isAsked_) {
    if (!changed_.wait_until(mutex_, time)) break;
  }
  return !isAsked_;
}

bool StreamThread::Stop::isAsked() {
  const MutexLock lock(mutex_);
  return isAsked_;
}

void StreamThread::Stop::ask() {
  const MutexLock lock(mutex_);
  isAsked_ = true;
  changed_.notify_all();
}

StreamThread::StreamThread(std::function<void(Stop&)> run) {
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
