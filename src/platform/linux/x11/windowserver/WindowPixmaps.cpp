#include "platform/linux/x11/windowserver/WindowPixmaps.h"

#include <xcb/composite.h>

#include <utility>
#include <vector>

namespace QelUtilVideo {

bool WindowPixmaps::areAvailable(X11Connection& connection) {
  const X11Connection::Use use(connection);
  const xcb_query_extension_reply_t* extension = xcb_get_extension_data(use, &xcb_composite_id);
  if (!extension || !extension->present) return false;
  // Names of pictures came with the second version.
  const auto version = use.reply(xcb_composite_query_version(use, 0, 4), xcb_composite_query_version_reply);
  return version && (version->major_version > 0 || version->minor_version >= 2);
}

xcb_pixmap_t WindowPixmaps::name(const X11Connection::Use& use, xcb_window_t top) {
  // Where a compositing manager did it already, this adds nothing.
  if (redirected_.insert(top).second) {
    xcb_composite_redirect_window(use, top, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  }
  const xcb_pixmap_t pixmap = xcb_generate_id(use);
  xcb_composite_name_window_pixmap(use, top, pixmap);
  return pixmap;
}

void WindowPixmaps::keep(const X11Connection::Use& use, xcb_window_t top, const Kept& picture) {
  const Kept before = std::exchange(kept_[top], picture);
  if (before.pixmap != XCB_NONE) xcb_free_pixmap(use, before.pixmap);
}

std::set<xcb_window_t> WindowPixmaps::keepAll(const X11Connection::Use& use,
                                              const std::set<xcb_window_t>& tops) {
  struct Question {
    xcb_window_t top;
    xcb_pixmap_t pixmap;
    xcb_get_geometry_cookie_t geometry;
  };
  std::vector<Question> questions;
  questions.reserve(tops.size());
  for (const xcb_window_t top : tops) {
    const xcb_pixmap_t pixmap = name(use, top);
    questions.push_back({top, pixmap, xcb_get_geometry(use, pixmap)});
  }
  std::set<xcb_window_t> withPicture;
  for (const auto& [top, pixmap, asked] : questions) {
    const auto geometry = use.reply(asked, xcb_get_geometry_reply);
    if (!geometry) continue;
    keep(use, top, {pixmap, geometry->width, geometry->height});
    withPicture.insert(top);
  }
  return withPicture;
}

std::optional<WindowPixmaps::Kept> WindowPixmaps::find(const WindowRecord& window) const {
  const auto found = kept_.find(window.top);
  if (found == kept_.end() || found->second.width != window.topBounds.width ||
      found->second.height != window.topBounds.height) {
    return std::nullopt;
  }
  return found->second;
}

void WindowPixmaps::forgetOthers(const X11Connection::Use& use, const WindowList& list) {
  std::set<xcb_window_t> tops;
  for (const auto* windows : {&list.onScreen, &list.offScreen}) {
    for (const WindowRecord& window : *windows) tops.insert(window.top);
  }
  std::erase_if(redirected_, [&](xcb_window_t top) {
    const bool isOther = !tops.contains(top);
    // A menu lives on while it is not shown, and the server counts redirections. It refuses for those that
    // are gone.
    if (isOther) xcb_composite_unredirect_window(use, top, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    return isOther;
  });
  std::erase_if(kept_, [&](const auto& picture) {
    const bool isOther = !tops.contains(picture.first);
    if (isOther) xcb_free_pixmap(use, picture.second.pixmap);
    return isOther;
  });
}

}  // namespace QelUtilVideo
