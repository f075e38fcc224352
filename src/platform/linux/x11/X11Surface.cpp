#include "platform/linux/x11/X11Surface.h"

#include "platform/linux/x11/MainThreadNews.h"
#include "platform/linux/x11/X11Pixels.h"

#include <functional>
#include <optional>
#include <utility>

namespace QelUtilVideo {

struct X11Surface::News {
  bool isExposed = false;
  bool isDestroyed = false;
  std::optional<bool> isMapped;
  std::optional<bool> isOccluded;
};

/// Sifts what the server says about the surface.
class X11Surface::Events final : public X11EventSink {
 public:
  Events(xcb_window_t window, EventLoop& loop, std::function<void(const News&)> handler)
      : window_(window), news_(std::make_shared<MainThreadNews<News>>(loop, std::move(handler))) {}

  void stop() { news_->stop(); }
  [[nodiscard]] bool isStopped() const { return news_->isStopped(); }

  // X11EventSink
  void handleEvent(const xcb_generic_event_t& event) override {
    switch (event.response_type & kEventTypeMask) {
      case XCB_EXPOSE: {
        const auto& expose = reinterpret_cast<const xcb_expose_event_t&>(event);
        // The last of those that one change brought about.
        if (expose.window == window_ && expose.count == 0) {
          news_->note([](News& news) { news.isExposed = true; });
        }
        break;
      }
      case XCB_VISIBILITY_NOTIFY: {
        const auto& visibility = reinterpret_cast<const xcb_visibility_notify_event_t&>(event);
        const bool isOccluded = visibility.state == XCB_VISIBILITY_FULLY_OBSCURED;
        if (visibility.window == window_) news_->note([=](News& news) { news.isOccluded = isOccluded; });
        break;
      }
      case XCB_DESTROY_NOTIFY: {
        const auto& destroyed = reinterpret_cast<const xcb_destroy_notify_event_t&>(event);
        if (destroyed.window == window_) news_->note([](News& news) { news.isDestroyed = true; });
        break;
      }
      case XCB_MAP_NOTIFY:
        noteMapping(reinterpret_cast<const xcb_map_notify_event_t&>(event).window, true);
        break;
      case XCB_UNMAP_NOTIFY:
        noteMapping(reinterpret_cast<const xcb_unmap_notify_event_t&>(event).window, false);
        break;
      default:
        break;
    }
  }
  void handleLoss() override {}

 private:
  void noteMapping(xcb_window_t window, bool isMapped) {
    if (window == window_) news_->note([=](News& news) { news.isMapped = isMapped; });
  }

  const xcb_window_t window_;
  const std::shared_ptr<MainThreadNews<News>> news_;
};

std::shared_ptr<X11Surface> X11Surface::make(std::shared_ptr<X11Toolkit> toolkit, xcb_window_t parent,
                                             std::weak_ptr<ViewSurfaceClient> client) {
  const xcb_window_t id = toolkit->createWindow(parent, 1, 1);
  if (id == XCB_NONE) return nullptr;
  return std::make_shared<X11Surface>(std::move(toolkit), id, std::move(client));
}

X11Surface::X11Surface(std::shared_ptr<X11Toolkit> toolkit, xcb_window_t id,
                       std::weak_ptr<ViewSurfaceClient> client)
    : toolkit_(std::move(toolkit)),
      window_(toolkit_->connection(), id),
      native_{toolkit_->connection()->displayName(), id, toolkit_->visual()},
      client_(std::move(client)),
      events_(std::make_shared<Events>(id, toolkit_->loop(), [this](const News& news) { handle(news); })) {
  toolkit_->connection()->addSink(events_);
  selection_ = {toolkit_->connection(), id,
                XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_VISIBILITY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY};
}

X11Surface::~X11Surface() { events_->stop(); }

void X11Surface::restoreBackground() {
  if (!isGone()) setBackground(true);
}

void X11Surface::setFrame(const CGRect& pixels) {
  const Frame frame{x11Place(pixels.origin.x), x11Place(pixels.origin.y), x11Length(pixels.size.width),
                    x11Length(pixels.size.height)};
  if (std::exchange(frame_, frame) == frame || isGone()) return;
  if (!frame.isEmpty()) {
    xcb_configure_window_value_list_t values{};
    values.x = frame.x;
    values.y = frame.y;
    values.width = frame.width;
    values.height = frame.height;
    const X11Connection::Use use(*toolkit_->connection());
    xcb_configure_window_aux(
        use, window_.id(),
        XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
        &values);
    xcb_flush(use);
  }
  updateMapping();
}

void X11Surface::setHidden(bool hidden) {
  isHidden_ = hidden;
  updateMapping();
}

void X11Surface::raise() {
  if (isGone()) return;
  constexpr std::uint32_t kAbove = XCB_STACK_MODE_ABOVE;
  const X11Connection::Use use(*toolkit_->connection());
  xcb_configure_window(use, window_.id(), XCB_CONFIG_WINDOW_STACK_MODE, &kAbove);
  xcb_flush(use);
}

void X11Surface::updateMapping() {
  const bool isDue = !isHidden_ && !frame_.isEmpty();
  if (isDue == isMapped_ || isGone()) return;
  isMapped_ = isDue;
  const X11Connection::Use use(*toolkit_->connection());
  if (isMapped_) {
    restoreBackground();
    xcb_map_window(use, window_.id());
  } else {
    xcb_unmap_window(use, window_.id());
  }
  xcb_flush(use);
}

void X11Surface::handle(const News& news) {
  if (isGone()) return;
  if (news.isDestroyed) {
    window_.forget();
    if (const auto client = client_.lock()) client->surfaceGone();
    return;
  }
  // The owner of the window that it lies in may map and unmap it too.
  if (news.isMapped) isMapped_ = *news.isMapped;
  if (isMapped_ && (isHidden_ || frame_.isEmpty())) updateMapping();
  // An exposure says that the server has painted it.
  if (news.isExposed) setBackground(false);
  const bool turned = news.isOccluded && std::exchange(isOccluded_, *news.isOccluded) != *news.isOccluded;
  const auto client = client_.lock();
  if (!client) return;
  // The client may let go of the surface.
  const auto events = events_;
  if (turned) client->surfaceOccluded(*news.isOccluded);
  if (news.isExposed && !events->isStopped()) client->surfaceExposed();
}

void X11Surface::setBackground(bool isBlack) {
  if (std::exchange(hasBackground_, isBlack) == isBlack) return;
  constexpr std::uint32_t kBlack = 0;
  constexpr std::uint32_t kNone = XCB_BACK_PIXMAP_NONE;
  const X11Connection::Use use(*toolkit_->connection());
  if (isBlack) {
    xcb_change_window_attributes(use, window_.id(), XCB_CW_BACK_PIXEL, &kBlack);
  } else {
    xcb_change_window_attributes(use, window_.id(), XCB_CW_BACK_PIXMAP, &kNone);
  }
  xcb_flush(use);
}

}  // namespace QelUtilVideo
