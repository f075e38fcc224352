#include "log/LogIDs.h"

#include "platform/Dispatch.h"

namespace QelUtilVideo {

LogIDs::LogIDs(Root& root) {
  Dispatch& dispatch = root.platform().dispatch();
  // Every object that could wait for its own queue takes a log ID first, so this is early enough.
  dispatch.setDeadlockHandler([&platform = root.platform()](const std::string& label) {
    platformTrouble(platform, "The queue " + label + " was asked to wait for itself");
  });
  queue_ = dispatch.makeQueue("QelUtilVideo.CapturableLogID");
}

LogIDs::~LogIDs() = default;

std::int64_t LogIDs::next() {
  std::int64_t next = 0;
  queue_->sync([&] { next = ++counter_; });
  return next;
}

}  // namespace QelUtilVideo
