#pragma once

#include "platform/linux/core/EventLoop.h"
#include "platform/linux/x11/X11Connection.h"

#include <memory>

namespace QelUtilVideo {

/// Takes events off a connection on the main thread whenever there are some, so that they reach the
/// connection's sinks while nobody makes requests. Loop and connection outlive it.
class X11EventPump {
 public:
  X11EventPump(std::shared_ptr<X11Connection> connection, EventLoop& loop);
  X11EventPump(const X11EventPump&) = delete;
  X11EventPump& operator=(const X11EventPump&) = delete;
  ~X11EventPump();

 private:
  const std::shared_ptr<X11Connection> connection_;
  EventLoop& loop_;
};

}  // namespace QelUtilVideo
