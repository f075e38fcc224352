#include "platform/linux/x11/X11Views.h"

#include "platform/linux/x11/X11ForeignWindow.h"
#include "platform/linux/x11/X11OwnWindow.h"
#include "platform/linux/x11/X11Toolkit.h"

#include <utility>

namespace QelUtilVideo {

X11Views::X11Views(std::shared_ptr<X11Connection> connection, EventLoop& loop, TroubleHandler trouble)
    : connection_(std::move(connection)), loop_(loop), trouble_(std::move(trouble)) {}

X11Views::~X11Views() = default;

std::unique_ptr<WindowBacking> X11Views::makeWindow(CGSize size, const std::string& title,
                                                    std::weak_ptr<WindowClient> client) {
  auto shared = toolkit();
  return shared ? X11OwnWindow::make(std::move(shared), size, title, std::move(client)) : nullptr;
}

std::unique_ptr<WindowBacking> X11Views::makeWindowIn(std::uint32_t windowNumber,
                                                      std::weak_ptr<WindowClient> client) {
  auto shared = toolkit();
  if (!shared) return nullptr;
  auto window = std::make_unique<X11ForeignWindow>(std::move(shared), windowNumber, std::move(client));
  return window->isGone() ? nullptr : std::move(window);
}

std::shared_ptr<X11Toolkit> X11Views::toolkit() {
  if (!toolkit_ && connection_) {
    toolkit_ = X11Toolkit::make(connection_, loop_, trouble_);
    // What the server lacks it will lack next time too.
    if (!toolkit_) connection_ = nullptr;
  }
  return toolkit_;
}

}  // namespace QelUtilVideo
