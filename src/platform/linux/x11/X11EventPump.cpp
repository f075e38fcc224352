#include "platform/linux/x11/X11EventPump.h"

#include <utility>

namespace QelUtilVideo {

X11EventPump::X11EventPump(std::shared_ptr<X11Connection> connection, EventLoop& loop)
    : connection_(std::move(connection)), loop_(loop) {
  loop_.watch(connection_->fileDescriptor(), [server = connection_, &mainLoop = loop_] {
    { const X11Connection::Use events(*server); }
    // A lost connection stays readable for ever.
    if (!server->isAlive()) mainLoop.unwatch(server->fileDescriptor());
  });
}

X11EventPump::~X11EventPump() { loop_.unwatch(connection_->fileDescriptor()); }

}  // namespace QelUtilVideo
