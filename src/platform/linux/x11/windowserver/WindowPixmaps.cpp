#include "platform/linux/x11/windowserver/WindowPixmaps.h"

#include <xcb/composite.h>

#include <limits>

namespace QelUtilVideo {

NamedPixmap::NamedPixmap(const X11Connection::Use& use, std::shared_ptr<X11Connection> connection,
                         xcb_window_t top)
    : connection_(std::move(connection)), id_(xcb_generate_id(use)) {
  xcb_composite_name_window_pixmap(use, top, id_);
}

NamedPixmap::~NamedPixmap() {
  if (id_ != XCB_NONE) xcb_free_pixmap(X11Connection::Use(*connection_), id_);
}

bool WindowPixmaps::areAvailable(X11Connection& connection) {
  const X11Connection::Use use(connection);
  const xcb_query_extension_reply_t* extension = xcb_get_extension_data(use, &xcb_composite_id);
  if (!extension || !extension->present) return false;
  // Names of pictures came with the second version.
  const auto version = use.reply(xcb_composite_query_version(use, 0, 4), xcb_composite_query_version_reply);
  return version && (version->major_version > 0 || version->minor_version >= 2);
}

bool WindowPixmaps::isPossible(const PixelRect& size) {
  constexpr int kMost = std::numeric_limits<std::int16_t>::max();
  // A gigabyte. That there is no memory for more shows only when it is used.
  constexpr std::int64_t kMostPixels = std::int64_t{1} << 28;
  return size.width > 0 && size.height > 0 && size.width <= kMost && size.height <= kMost &&
         std::int64_t{size.width} * size.height <= kMostPixels;
}

NamedPixmap WindowPixmaps::name(const X11Connection::Use& use, const WindowRecord& window) {
  if (!isPossible(window.topBounds)) return {};
  // Where a compositing manager did it already, this adds nothing.
  if (std::exchange(redirected_[window.top], window.topLife) != window.topLife) {
    xcb_composite_redirect_window(use, window.top, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  }
  return {use, connection_, window.top};
}

void WindowPixmaps::doubt(const X11Connection::Use& use, const WindowRecord& window) {
  // If it was made after all, a second one would be counted.
  if (redirected_.erase(window.top) == 0) return;
  xcb_composite_unredirect_window(use, window.top, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
}

void WindowPixmaps::keep(const WindowRecord& window, NamedPixmap pixmap,
                         const xcb_get_geometry_reply_t& size) {
  kept_[window.top] = {std::move(pixmap), size.width, size.height, window.topLife, window.window};
}

std::set<xcb_window_t> WindowPixmaps::keepAll(const X11Connection::Use& use,
                                              const std::vector<WindowRecord>& windows) {
  struct Question {
    const WindowRecord& window;
    NamedPixmap pixmap;
    xcb_get_geometry_cookie_t geometry;
  };
  std::vector<Question> questions;
  questions.reserve(windows.size());
  for (const WindowRecord& window : windows) {
    NamedPixmap pixmap = name(use, window);
    if (!pixmap) continue;
    const auto geometry = xcb_get_geometry(use, pixmap.id());
    questions.push_back({window, std::move(pixmap), geometry});
  }
  std::set<xcb_window_t> withPicture;
  for (Question& question : questions) {
    const auto size = use.reply(question.geometry, xcb_get_geometry_reply);
    if (!size) {
      doubt(use, question.window);
      continue;
    }
    keep(question.window, std::move(question.pixmap), *size);
    withPicture.insert(question.window.top);
  }
  return withPicture;
}

const WindowPixmaps::Kept* WindowPixmaps::last(const WindowRecord& window) const {
  const auto found = kept_.find(window.top);
  if (found == kept_.end() || found->second.life != window.topLife) return nullptr;
  const bool mayShowAnother = !window.isOnScreen && found->second.window != window.window;
  return mayShowAnother ? nullptr : &found->second;
}

const WindowPixmaps::Kept* WindowPixmaps::find(const WindowRecord& window) const {
  const Kept* kept = last(window);
  const PixelRect& top = window.topBounds;
  return kept && kept->width == top.width && kept->height == top.height ? kept : nullptr;
}

void WindowPixmaps::forgetOthers(const X11Connection::Use& use, const WindowList& list) {
  std::map<xcb_window_t, std::uint64_t> lives;
  for (const auto* windows : {&list.onScreen, &list.offScreen}) {
    for (const WindowRecord& window : *windows) lives.emplace(window.top, window.topLife);
  }
  const auto isThere = [&](xcb_window_t top, std::uint64_t life) {
    const auto found = lives.find(top);
    return found != lives.end() && found->second == life;
  };
  std::erase_if(redirected_, [&](const auto& top) {
    const bool isOther = !isThere(top.first, top.second);
    // A menu lives on while it is not shown, and the server counts redirections. It refuses for those that
    // are gone.
    if (isOther) xcb_composite_unredirect_window(use, top.first, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    return isOther;
  });
  // A hidden window whose frame still shows: what is kept there is live, and shows something else now.
  for (const WindowRecord& window : list.offScreen) {
    const auto kept = kept_.find(window.top);
    const bool isLive = window.isTopViewable && kept != kept_.end() && kept->second.window == window.window;
    if (isLive) kept->second.window = XCB_NONE;
  }
  std::erase_if(kept_, [&](const auto& kept) { return !isThere(kept.first, kept.second.life); });
}

}  // namespace QelUtilVideo
