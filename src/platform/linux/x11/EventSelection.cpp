#include "platform/linux/x11/EventSelection.h"

#include <algorithm>
#include <utility>

namespace QelUtilVideo {

namespace {

using Masks = std::multimap<xcb_window_t, std::uint32_t>;

std::uint32_t maskOf(const Masks& masks, xcb_window_t window) {
  std::uint32_t all = 0;
  const auto [begin, end] = masks.equal_range(window);
  std::for_each(begin, end, [&](const auto& wanted) { all |= wanted.second; });
  return all;
}

/// Changes what is wanted of the window, and asks the server for it where that makes a difference.
template <class Change>
void update(X11Connection& connection, xcb_window_t window, Change&& change) {
  const X11Connection::Use use(connection);
  Masks& masks = connection.eventMasks(use);
  const std::uint32_t before = maskOf(masks, window);
  std::forward<Change>(change)(masks);
  const std::uint32_t mask = maskOf(masks, window);
  if (mask == before) return;
  xcb_change_window_attributes(use, window, XCB_CW_EVENT_MASK, &mask);
}

}  // namespace

EventSelection::EventSelection(std::shared_ptr<X11Connection> connection, xcb_window_t window,
                               std::uint32_t mask) {
  const X11Connection::Use use(*connection);
  *this = EventSelection(use, connection, window, mask);
  xcb_flush(use);
}

EventSelection::EventSelection(const X11Connection::Use& /*use*/, std::shared_ptr<X11Connection> connection,
                               xcb_window_t window, std::uint32_t mask)
    : connection_(std::move(connection)), window_(window), mask_(mask) {
  update(*connection_, window_, [this](Masks& masks) { masks.emplace(window_, mask_); });
}

EventSelection& EventSelection::operator=(EventSelection&& other) noexcept {
  std::swap(connection_, other.connection_);
  std::swap(window_, other.window_);
  std::swap(mask_, other.mask_);
  return *this;
}

EventSelection::~EventSelection() {
  if (!connection_) return;
  update(*connection_, window_, [this](Masks& masks) {
    const auto [begin, end] = masks.equal_range(window_);
    const auto own = std::find_if(begin, end, [this](const auto& wanted) { return wanted.second == mask_; });
    masks.erase(own);
  });
}

}  // namespace QelUtilVideo
