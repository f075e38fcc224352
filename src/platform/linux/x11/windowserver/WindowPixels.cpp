#include "platform/linux/x11/windowserver/WindowPixels.h"

#include <xcb/shape.h>
#include <xcb/shm.h>

#include <algorithm>
#include <limits>
#include <new>
#include <set>
#include <utility>

namespace QelUtilVideo {

namespace {

/// Windows may change between a list and their pixels; those that never rest are shown without.
constexpr int kMostAttempts = 4;
constexpr std::uint32_t kAllPlanes = 0xFFFFFFFF;

/// Pixels as a `get_image` of the protocol answers them.
class ReplyBytes : public ImageBytes {
 public:
  explicit ReplyBytes(XcbReply<xcb_get_image_reply_t> reply) : reply_(std::move(reply)) {}
  std::byte* data() override { return reinterpret_cast<std::byte*>(xcb_get_image_data(reply_.get())); }
  std::size_t size() const override {
    return static_cast<std::size_t>(xcb_get_image_data_length(reply_.get()));
  }

 private:
  XcbReply<xcb_get_image_reply_t> reply_;
};

bool hasExtension(X11Connection& connection, xcb_extension_t& extension) {
  const X11Connection::Use use(connection);
  const xcb_query_extension_reply_t* data = xcb_get_extension_data(use, &extension);
  return data && data->present;
}

}  // namespace

struct WindowPixels::Question {
  WindowRecord window;
  WindowPiece piece;
  xcb_pixmap_t named = XCB_NONE;     ///< made for this question; none: the kept one, or the screen itself
  std::shared_ptr<ShmBytes> shared;  ///< null: the pixels come with the reply
  xcb_get_geometry_cookie_t geometry{};
  xcb_shm_get_image_cookie_t sharedImage{};
  xcb_get_image_cookie_t image{};
  std::optional<xcb_shape_get_rectangles_cookie_t> shape;
};

WindowPixels::WindowPixels(std::shared_ptr<X11Connection> connection, std::shared_ptr<WindowTable> table)
    : connection_(std::move(connection)),
      table_(std::move(table)),
      hasShapes_(hasExtension(*connection_, xcb_shape_id)),
      hasPixmaps_(WindowPixmaps::areAvailable(*connection_)),
      pool_(connection_) {}

WindowPixels::~WindowPixels() { release(); }

bool WindowPixels::probe(const std::shared_ptr<const WindowList>& list,
                         const std::vector<WindowRecord>& windows) try {
  const auto isOnScreen = [](const WindowRecord& window) { return window.isOnScreen; };
  if (!hasPixmaps_) return std::any_of(windows.begin(), windows.end(), isOnScreen);
  const MutexLock lock(mutex_);
  const Use use(*connection_);
  follow(use, list);
  std::set<xcb_window_t> tops;
  for (const WindowRecord& window : windows) {
    if (window.isOnScreen && !pixmaps_.find(window)) tops.insert(window.top);
  }
  if (std::exchange(isRefreshDue_, false)) {
    // One that was away and came back has another picture, which shall be its last one.
    for (const WindowRecord& window : list->onScreen) {
      if (pixmaps_.has(window.top)) tops.insert(window.top);
    }
  }
  const auto named = pixmaps_.keepAll(use, tops);
  // One that changes its size just now has a picture all the same.
  return std::any_of(windows.begin(), windows.end(), [&](const WindowRecord& window) REQUIRES(mutex_) {
    return named.contains(window.top) || pixmaps_.find(window);
  });
} catch (const std::bad_alloc&) {
  return false;
}

std::shared_ptr<CGImage> WindowPixels::fetch(const Selection& selection, std::optional<PixelRect> wanted,
                                             Opacity opacity) try {
  for (int attempt = 1; attempt <= kMostAttempts; ++attempt) {
    const auto list = table_->current();
    if (!list) return nullptr;
    const std::vector<WindowRecord> windows = selection(*list);
    const PixelRect area = wanted.value_or(boundsOf(windows));
    if (windows.empty() || !isPossible(area)) return nullptr;
    Answer answer;
    {
      const MutexLock lock(mutex_);
      {
        const Use use(*connection_);
        follow(use, list);
      }
      answer = ask(windows, area);
    }
    if (answer.isStale && attempt < kMostAttempts) continue;
    return answer.hasPixels ? composePieces(area, std::move(answer.pieces), opacity, pool_) : nullptr;
  }
  return nullptr;
} catch (const std::bad_alloc&) {
  return nullptr;
}

void WindowPixels::release() {
  const MutexLock lock(mutex_);
  const Use use(*connection_);
  pixmaps_.forgetAll(use);
  list_ = nullptr;
  xcb_flush(use);
}

std::optional<X11PixelFormat> WindowPixels::formatOf(const WindowRecord& window) const {
  const xcb_screen_t& screen = connection_->screen();
  return hasPixmaps_ ? X11PixelFormat::of(*connection_, window.depth, window.visual)
                     : X11PixelFormat::of(*connection_, screen.root_depth, screen.root_visual);
}

bool WindowPixels::isPossible(const PixelRect& area) {
  constexpr int kMost = std::numeric_limits<std::int16_t>::max();
  // A gigabyte. That there is no memory for more shows only when it is used.
  constexpr std::int64_t kMostPixels = std::int64_t{1} << 28;
  return area.width > 0 && area.height > 0 && area.width <= kMost && area.height <= kMost &&
         std::int64_t{area.width} * area.height <= kMostPixels;
}

PixelRect WindowPixels::boundsOf(const std::vector<WindowRecord>& windows) {
  if (windows.empty()) return {};
  PixelRect all = windows.front().bounds;
  for (const WindowRecord& window : windows) {
    const PixelRect& bounds = window.bounds;
    const int right = std::max(all.x + all.width, bounds.x + bounds.width);
    const int bottom = std::max(all.y + all.height, bounds.y + bounds.height);
    all.x = std::min(all.x, bounds.x);
    all.y = std::min(all.y, bounds.y);
    all.width = right - all.x;
    all.height = bottom - all.y;
  }
  return all;
}

WindowPixels::Answer WindowPixels::ask(const std::vector<WindowRecord>& windows, const PixelRect& area) {
  Answer answer;
  std::vector<Question> questions;
  const Use use(*connection_);
  questions.reserve(windows.size());
  for (const WindowRecord& window : windows) {
    const auto format = formatOf(window);
    if (!format || format->model != CGColorSpaceModel::rgb) continue;
    if (!window.isOnScreen && !pixmaps_.find(window)) continue;
    answer.hasPixels = true;
    if (auto question = questionAbout(use, window, *format, area)) questions.push_back(std::move(*question));
  }
  for (Question& question : questions) take(use, question, answer);
  return answer;
}

void WindowPixels::follow(const Use& use, const std::shared_ptr<const WindowList>& list) {
  if (list == list_) return;
  list_ = list;
  isRefreshDue_ = true;
  pixmaps_.forgetOthers(use, *list);
}

std::optional<WindowPixels::Question> WindowPixels::questionAbout(const Use& use, const WindowRecord& window,
                                                                  const X11PixelFormat& format,
                                                                  const PixelRect& area) {
  const xcb_screen_t& screen = connection_->screen();
  Question question;
  question.window = window;
  PixelRect& place = question.piece.place;
  place = intersection(intersection(window.bounds, window.topBounds), area);
  if (!hasPixmaps_) place = intersection(place, {0, 0, screen.width_in_pixels, screen.height_in_pixels});
  if (!isPossible(place)) return std::nullopt;
  question.piece.format = format;

  xcb_drawable_t drawable = connection_->root();
  int x = place.x, y = place.y;
  if (hasPixmaps_) {
    if (window.isOnScreen) question.named = pixmaps_.name(use, window.top);
    const auto kept = pixmaps_.find(window);
    drawable = question.named != XCB_NONE || !kept ? question.named : kept->pixmap;
    x -= window.topBounds.x;
    y -= window.topBounds.y;
    question.geometry = xcb_get_geometry(use, drawable);
  }
  if (hasShapes_) question.shape = xcb_shape_get_rectangles(use, window.top, XCB_SHAPE_SK_BOUNDING);
  const auto left = static_cast<std::int16_t>(x), top = static_cast<std::int16_t>(y);
  const auto width = static_cast<std::uint16_t>(place.width),
             height = static_cast<std::uint16_t>(place.height);
  question.shared = pool_.take(format.bytesPerRow(width) * height);
  if (question.shared) {
    question.sharedImage = xcb_shm_get_image(use, drawable, left, top, width, height, kAllPlanes,
                                             XCB_IMAGE_FORMAT_Z_PIXMAP, question.shared->segment(), 0);
  } else {
    question.image =
        xcb_get_image(use, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, left, top, width, height, kAllPlanes);
  }
  return question;
}

void WindowPixels::take(const Use& use, Question& question, Answer& answer) {
  const bool isSame = isStillThatSize(use, question);
  const bool isThere = takeShape(use, question);
  question.piece.bytes = takePixels(use, question);
  if (!isSame || !isThere || !question.piece.bytes) answer.isStale = true;
  // Of one that never rests, what was there at that moment.
  if (isThere && question.piece.bytes) answer.pieces.push_back(std::move(question.piece));
}

/// Keeps the named picture, or drops it.
bool WindowPixels::isStillThatSize(const Use& use, Question& question) {
  if (question.geometry.sequence == 0) return true;
  const auto geometry = use.reply(question.geometry, xcb_get_geometry_reply);
  if (!geometry) return false;
  const PixelRect& bounds = question.window.topBounds;
  const bool isSame = geometry->width == bounds.width && geometry->height == bounds.height;
  if (question.named != XCB_NONE) {
    pixmaps_.keep(use, question.window.top, {question.named, geometry->width, geometry->height});
  }
  return isSame;
}

std::shared_ptr<ImageBytes> WindowPixels::takePixels(const Use& use, Question& question) {
  const auto& format = question.piece.format;
  const PixelRect& place = question.piece.place;
  if (question.shared) {
    const auto reply = use.reply(question.sharedImage, xcb_shm_get_image_reply);
    return reply && reply->depth == format.depth ? std::move(question.shared) : nullptr;
  }
  auto reply = use.reply(question.image, xcb_get_image_reply);
  if (!reply || reply->depth != format.depth) return nullptr;
  auto bytes = std::make_shared<ReplyBytes>(std::move(reply));
  const std::size_t needed =
      format.bytesPerRow(static_cast<std::size_t>(place.width)) * static_cast<std::size_t>(place.height);
  return bytes->size() >= needed ? bytes : nullptr;
}

bool WindowPixels::takeShape(const Use& use, Question& question) {
  if (!question.shape) return true;
  const auto reply = use.reply(*question.shape, xcb_shape_get_rectangles_reply);
  if (!reply) return false;
  // From the content's corner, which lies inside the border.
  const WindowRecord& window = question.window;
  const int left = window.topBounds.x + window.borderWidth, top = window.topBounds.y + window.borderWidth;
  const PixelRect& place = question.piece.place;
  std::vector<PixelRect> shape;
  const xcb_rectangle_t* rects = xcb_shape_get_rectangles_rectangles(reply.get());
  for (int i = 0; i < xcb_shape_get_rectangles_rectangles_length(reply.get()); ++i) {
    const PixelRect part{left + rects[i].x, top + rects[i].y, rects[i].width, rects[i].height};
    // Windows without a shape of their own have one rectangle.
    if (intersection(part, place) == place) return true;
    shape.push_back(part);
  }
  question.piece.shape = std::move(shape);
  return true;
}

}  // namespace QelUtilVideo
