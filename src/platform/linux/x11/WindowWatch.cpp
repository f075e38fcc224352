#include "platform/linux/x11/WindowWatch.h"

#include "platform/linux/x11/WindowManager.h"
#include "platform/linux/x11/X11Surface.h"

#include <cstddef>
#include <utility>

namespace QelUtilVideo {

WindowWatch::WindowWatch(std::shared_ptr<X11Toolkit> toolkit, xcb_window_t window, WindowEvents::Owner owner,
                         std::weak_ptr<WindowClient> client)
    : toolkit_(std::move(toolkit)),
      window_(window),
      client_(std::move(client)),
      events_(std::make_shared<WindowEvents>(*toolkit_, window, owner,
                                             [this](const WindowNews& news) { follow(news); })) {
  toolkit_->connection()->addSink(events_);
  watchAncestors();
  static_cast<void>(refresh());
}

WindowWatch::~WindowWatch() { events_->stop(); }

std::shared_ptr<ViewSurface> WindowWatch::makeSurface(std::weak_ptr<ViewSurfaceClient> client) {
  if (isGone_) return nullptr;
  auto surface = X11Surface::make(toolkit_, window_, std::move(client));
  std::erase_if(surfaces_, [](const auto& other) { return other.expired(); });
  if (surface) surfaces_.push_back(surface);
  return surface;
}

void WindowWatch::follow(const WindowNews& news) {
  if (news.isReparented) watchAncestors();
  const bool isNew = news.isMoved && refresh();
  if (news.isGone || isGone_) return vanish();
  if (news.ping) answer(*news.ping);
  const auto client = client_.lock();
  if (!client) return;
  // In each of these calls the client may end the watch, or find out that the window is gone.
  const auto events = events_;
  const auto toolkit = toolkit_;
  if (isNew) client->windowChanged();
  for (const KeyPress& key : news.keys) {
    if (!events->isStopped()) client->windowKeyDown(toolkit->keyboard().describe(key));
  }
  if (news.isAskedToClose && !events->isStopped()) client->windowCloseRequested();
}

void WindowWatch::vanish() {
  isGone_ = true;
  state_.viewable = false;
  events_->stop();
  selections_.clear();
  if (const auto client = client_.lock()) client->windowGone();
}

void WindowWatch::watchAncestors() {
  // Whoever nests windows deeper than this does not do it to show anything.
  constexpr std::size_t kDeepest = 64;
  const auto& connection = toolkit_->connection();
  std::vector<EventSelection> selections;
  std::vector<xcb_window_t> ancestors;
  const X11Connection::Use use(*connection);
  for (xcb_window_t window = window_; selections.size() < kDeepest; window = ancestors.back()) {
    // Watched first and asked for then, so that no change falls between.
    selections.emplace_back(connection, window, XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    const auto tree = use.reply(xcb_query_tree(use, window), xcb_query_tree_reply);
    if (!tree || tree->parent == XCB_NONE || tree->parent == tree->root) break;
    ancestors.push_back(tree->parent);
    events_->setAncestors(ancestors);
  }
  events_->setAncestors(std::move(ancestors));
  selections_ = std::move(selections);
}

bool WindowWatch::refresh() {
  const std::optional<WindowBacking::State> found = ask();
  isGone_ = !found;
  if (isGone_) return false;
  const auto expected = std::exchange(expected_, std::nullopt);
  const bool isAsExpected = !expected || *expected == found->frame.size;
  const bool isNew = std::exchange(state_, *found) != *found;
  if (isNew && !state_.viewable) {
    for (const auto& surface : surfaces_) {
      if (const auto alive = surface.lock()) alive->restoreBackground();
    }
  }
  return isNew || !isAsExpected;
}

std::optional<WindowBacking::State> WindowWatch::ask() const {
  const xcb_window_t root = toolkit_->connection()->root();
  const X11Connection::Use use(*toolkit_->connection());
  const auto placeAsked = xcb_translate_coordinates(use, window_, root, 0, 0);
  const auto geometryAsked = xcb_get_geometry(use, window_);
  const auto attributesAsked = xcb_get_window_attributes(use, window_);
  const auto place = use.reply(placeAsked, xcb_translate_coordinates_reply);
  const auto geometry = use.reply(geometryAsked, xcb_get_geometry_reply);
  const auto attributes = use.reply(attributesAsked, xcb_get_window_attributes_reply);
  // One of another screen of the server has another root.
  if (!place || !geometry || !attributes || geometry->root != root) return std::nullopt;
  return WindowBacking::State{CGRectMake(place->dst_x, place->dst_y, geometry->width, geometry->height),
                              attributes->map_state == XCB_MAP_STATE_VIEWABLE};
}

void WindowWatch::answer(xcb_client_message_event_t ping) const {
  const xcb_window_t root = toolkit_->connection()->root();
  ping.window = root;
  const X11Connection::Use use(*toolkit_->connection());
  sendToWindowManager(use, root, ping);
}

}  // namespace QelUtilVideo
