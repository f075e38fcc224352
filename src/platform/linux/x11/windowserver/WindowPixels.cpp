#include "platform/linux/x11/windowserver/WindowPixels.h"

#include "platform/linux/x11/ReplyBytes.h"

#include <xcb/shape.h>
#include <xcb/shm.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <set>
#include <utility>

namespace QelUtilVideo {

namespace {

/// Windows may change between a list and their pixels. Those that never rest are shown as they were a moment
/// ago.
constexpr int kMostAttempts = 4;
/// A window in more parts than this is shown as if it had no shape.
constexpr int kMostParts = 10'000;

bool hasExtension(X11Connection& connection, xcb_extension_t& extension) {
  const X11Connection::Use use(connection);
  const xcb_query_extension_reply_t* data = xcb_get_extension_data(use, &extension);
  return data && data->present;
}

}  // namespace

struct WindowPixels::Question {
  WindowRecord window;
  WindowPiece piece;
  NamedPixmap named;                 ///< made for this question; none: the kept one, or the screen itself
  std::shared_ptr<ShmBytes> shared;  ///< null: the pixels come with the reply
  xcb_drawable_t drawable = XCB_NONE;
  int x = 0;  ///< of the piece's place in the drawable
  int y = 0;
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
      pool_(connection_),
      pixmaps_(connection_) {}

WindowPixels::~WindowPixels() { release(); }

bool WindowPixels::probe(const std::shared_ptr<const WindowList>& list,
                         const std::vector<WindowRecord>& windows) try {
  const auto isOnScreen = [](const WindowRecord& window) { return window.isOnScreen; };
  if (!hasPixmaps_) return std::any_of(windows.begin(), windows.end(), isOnScreen);
  const MutexLock lock(mutex_);
  const Use use(*connection_);
  follow(use, list);
  std::vector<WindowRecord> unnamed;
  for (const WindowRecord& window : windows) {
    if (window.isOnScreen && isShowable(window) && !pixmaps_.find(window)) unnamed.push_back(window);
  }
  if (std::exchange(isRefreshDue_, false)) {
    // One that was away and came back has another picture, which shall be its last one.
    for (const WindowRecord& window : list->onScreen) {
      if (pixmaps_.last(window)) unnamed.push_back(window);
    }
  }
  const auto named = pixmaps_.keepAll(use, unnamed);
  // One that changes its size just now has a picture all the same.
  return std::any_of(windows.begin(), windows.end(), [&](const WindowRecord& window) REQUIRES(mutex_) {
    return isShowable(window) && (hasPicture(window) || (window.isOnScreen && named.contains(window.top)));
  });
} catch (const std::exception&) {
  return false;
}

std::shared_ptr<CGImage> WindowPixels::fetch(const Selection& selection, std::optional<PixelRect> wanted,
                                             Opacity opacity) try {
  for (int attempt = 1; attempt <= kMostAttempts; ++attempt) {
    // Most of the time nothing has changed since the list was asked for, and one wait is enough.
    const auto known = attempt == 1 ? table_->lastKnown() : nullptr;
    const auto list = known ? known : table_->current();
    if (!list) return nullptr;
    const std::vector<WindowRecord> windows = selection(*list);
    const PixelRect area = wanted.value_or(boundsOf(windows));
    if (windows.empty() || !isPossible(area)) {
      if (known) continue;
      return nullptr;
    }
    Answer answer;
    {
      const MutexLock lock(mutex_);
      {
        const Use use(*connection_);
        follow(use, list);
      }
      answer = ask(*list, windows, area, attempt < kMostAttempts ? Source::now : Source::kept);
    }
    // Where nothing was asked, nothing was heard either.
    if (answer.isStale || (known && (answer.pieces.empty() || !table_->isStill(known)))) continue;
    return answer.hasPixels ? composePieces(area, std::move(answer.pieces), opacity, pool_) : nullptr;
  }
  return nullptr;
} catch (const std::exception&) {
  return nullptr;
}

void WindowPixels::release() {
  const MutexLock lock(mutex_);
  const Use use(*connection_);
  pixmaps_.forgetAll(use);
  formerList_ = std::exchange(list_, nullptr);
  xcb_flush(use);
}

std::optional<X11PixelFormat> WindowPixels::formatOf(const WindowRecord& window) const {
  const xcb_screen_t& screen = connection_->screen();
  return hasPixmaps_ ? X11PixelFormat::of(*connection_, window.depth, window.visual)
                     : X11PixelFormat::of(*connection_, screen.root_depth, screen.root_visual);
}

bool WindowPixels::isPossible(const PixelRect& area) { return WindowPixmaps::isPossible(area); }

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

bool WindowPixels::isShowable(const WindowRecord& window) const {
  const auto format = formatOf(window);
  return format && (format->isConvertible() || format->model != CGColorSpaceModel::rgb);
}

/// A hidden one whose frame still shows lies in a picture of something else.
bool WindowPixels::hasPicture(const WindowRecord& window) const {
  return (window.isOnScreen || !window.isTopViewable) && pixmaps_.find(window);
}

WindowPixels::Answer WindowPixels::ask(const WindowList& list, const std::vector<WindowRecord>& windows,
                                       const PixelRect& area, Source source) {
  Answer answer;
  std::vector<Question> questions;
  const Use use(*connection_);
  questions.reserve(windows.size());
  try {
    for (const WindowRecord& window : windows) {
      const auto format = formatOf(window);
      if (!format || !format->isConvertible()) continue;
      if (!window.isOnScreen && !hasPicture(window)) continue;
      auto question = questionAbout(use, list, window, area, source);
      if (!question) continue;
      // What lies elsewhere is there all the same.
      if (!isPossible(question->piece.place)) {
        answer.hasPixels = true;
        continue;
      }
      question->piece.format = *format;
      send(use, *question);
      questions.push_back(std::move(*question));
    }
    for (Question& question : questions) take(use, question, answer);
  } catch (...) {
    for (const Question& question : questions) discard(use, question);
    // Nobody else gets the memory that the server still writes to.
    (void)use.reply(xcb_get_input_focus(use), xcb_get_input_focus_reply);
    throw;
  }
  if (source == Source::kept) answer.isStale = false;
  return answer;
}

void WindowPixels::follow(const Use& use, const std::shared_ptr<const WindowList>& list) {
  if (list == list_ || list == formerList_) return;
  formerList_ = std::exchange(list_, list);
  isRefreshDue_ = true;
  pixmaps_.forgetOthers(use, *list);
}

/// Where the pixels are; absent when the server has none.
std::optional<WindowPixels::Question> WindowPixels::questionAbout(const Use& use, const WindowList& list,
                                                                  const WindowRecord& window,
                                                                  const PixelRect& area, Source source) {
  Question question;
  question.window = window;
  PixelRect& place = question.piece.place;
  place = intersection(intersection(window.bounds, window.topBounds), area);
  if (!hasPixmaps_) {
    const PixelRect visible = intersection(window.bounds, list.desktop.bounds);
    if (!isPossible(visible)) return std::nullopt;
    place = intersection(place, visible);
    question.drawable = connection_->root();
    question.x = place.x;
    question.y = place.y;
    return question;
  }
  const bool isNow = source == Source::now && window.isOnScreen;
  if (isNow) {
    if (!isPossible(window.topBounds)) return std::nullopt;
    if (isPossible(place)) question.named = pixmaps_.name(use, window);
    question.drawable = question.named.id();
  } else {
    const WindowPixmaps::Kept* kept = window.isOnScreen ? pixmaps_.last(window) : pixmaps_.find(window);
    if (!kept || kept->window != window.window) return std::nullopt;
    question.drawable = kept->pixmap.id();
    place = intersection(place, {window.topBounds.x, window.topBounds.y, kept->width, kept->height});
  }
  question.x = place.x - window.topBounds.x;
  question.y = place.y - window.topBounds.y;
  return question;
}

void WindowPixels::send(const Use& use, Question& question) {
  const PixelRect& place = question.piece.place;
  if (question.named) question.geometry = xcb_get_geometry(use, question.drawable);
  if (hasShapes_) question.shape = xcb_shape_get_rectangles(use, question.window.top, XCB_SHAPE_SK_BOUNDING);
  const auto left = static_cast<std::int16_t>(question.x), top = static_cast<std::int16_t>(question.y);
  const auto width = static_cast<std::uint16_t>(place.width),
             height = static_cast<std::uint16_t>(place.height);
  question.shared = pool_.take(question.piece.format.bytesPerRow(width) * height);
  if (question.shared) {
    question.sharedImage = xcb_shm_get_image(use, question.drawable, left, top, width, height, kAllPlanes,
                                             XCB_IMAGE_FORMAT_Z_PIXMAP, question.shared->segment(), 0);
  } else {
    question.image = xcb_get_image(use, XCB_IMAGE_FORMAT_Z_PIXMAP, question.drawable, left, top, width,
                                   height, kAllPlanes);
  }
}

void WindowPixels::discard(const Use& use, const Question& question) {
  const unsigned shape = question.shape ? question.shape->sequence : 0;
  for (const unsigned sequence :
       {question.geometry.sequence, question.sharedImage.sequence, question.image.sequence, shape}) {
    if (sequence != 0) xcb_discard_reply(use, sequence);
  }
}

void WindowPixels::take(const Use& use, Question& question, Answer& answer) {
  const bool isSame = isStillThatSize(use, question);
  const bool isThere = takeShape(use, question);
  question.piece.bytes = takePixels(use, question);
  if (!isSame || !isThere || !question.piece.bytes) {
    answer.isStale = true;
    return;
  }
  answer.hasPixels = true;
  answer.pieces.push_back(std::move(question.piece));
}

/// Keeps the named picture, or drops it.
bool WindowPixels::isStillThatSize(const Use& use, Question& question) {
  if (!question.named) return true;
  const auto geometry = use.reply(question.geometry, xcb_get_geometry_reply);
  if (!geometry) {
    pixmaps_.doubt(use, question.window);
    return false;
  }
  const PixelRect& bounds = question.window.topBounds;
  pixmaps_.keep(question.window, std::move(question.named), *geometry);
  return geometry->width == bounds.width && geometry->height == bounds.height;
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
  const int parts = xcb_shape_get_rectangles_rectangles_length(reply.get());
  if (parts > kMostParts) return true;
  const xcb_rectangle_t* rects = xcb_shape_get_rectangles_rectangles(reply.get());
  for (int i = 0; i < parts; ++i) {
    const PixelRect part{left + rects[i].x, top + rects[i].y, rects[i].width, rects[i].height};
    // Windows without a shape of their own have one rectangle.
    if (intersection(part, place) == place) return true;
    shape.push_back(part);
  }
  question.piece.shape = std::move(shape);
  return true;
}

}  // namespace QelUtilVideo
