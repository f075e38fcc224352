#pragma once

#include "platform/linux/x11/PixelFormats.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <gtest/gtest.h>
#include <xcb/shape.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qeltest {

using QelUtilVideo::PixelRect;
using QelUtilVideo::X11Connection;
using QelUtilVideo::X11PixelFormat;

/// Blue, green, red, alpha.
using Bgra = std::array<int, 4>;

/// A window full of squares whose colours say where they lie and which window it is.
struct PaintedWindow {
  xcb_window_t window = XCB_NONE;
  PixelRect place;
  std::uint32_t seed = 0;
  X11PixelFormat format;
  std::vector<PixelRect> shape = {};  ///< in its own coordinates; none: all of it

  [[nodiscard]] bool covers(int x, int y) const {
    const auto isIn = [](const PixelRect& rect, int px, int py) {
      return px >= rect.x && py >= rect.y && px < rect.x + rect.width && py < rect.y + rect.height;
    };
    if (!isIn(place, x, y)) return false;
    bool isInShape = shape.empty();
    for (const PixelRect& part : shape) isInShape = isInShape || isIn(part, x - place.x, y - place.y);
    return isInShape;
  }
  /// What it shows at that place of the root.
  [[nodiscard]] Bgra at(int x, int y) const;
};

/// Another program with windows. Each call waits until the server has done it.
class WindowPainter {
 public:
  static constexpr int kSquare = 8;
  static constexpr int kLargest = 256;  ///< after so many pixels each way the squares begin again

  explicit WindowPainter(const std::string& display) : connection_(X11Connection::open(display.c_str())) {}
  [[nodiscard]] const std::shared_ptr<X11Connection>& connection() const { return connection_; }
  void sync() const {
    const X11Connection::Use use(*connection_);
    (void)use.reply(xcb_get_input_focus(use), xcb_get_input_focus_reply);
  }

  /// Shown; with a depth of its own, or the screen's (0); `instance` is the first half of its class.
  [[nodiscard]] PaintedWindow show(const PixelRect& place, std::uint32_t seed, std::uint8_t depth = 0,
                                   bool isMenu = false, std::uint16_t border = 0,
                                   const std::string& instance = "") const {
    const X11Connection::Use use(*connection_);
    const xcb_screen_t& screen = connection_->screen();
    xcb_visualid_t visual = screen.root_visual;
    if (depth == 0) depth = screen.root_depth;
    for (auto depths = xcb_screen_allowed_depths_iterator(&screen); depths.rem > 0; xcb_depth_next(&depths)) {
      if (depths.data->depth == depth && depth != screen.root_depth) {
        visual = xcb_depth_visuals(depths.data)->visual_id;
      }
    }
    PaintedWindow made{xcb_generate_id(use), place, seed, *X11PixelFormat::of(*connection_, depth, visual)};
    xcb_create_window_value_list_t values{};
    values.override_redirect = isMenu;
    values.colormap = xcb_generate_id(use);
    xcb_create_colormap(use, XCB_COLORMAP_ALLOC_NONE, values.colormap, screen.root, visual);
    xcb_create_window_aux(use, depth, made.window, screen.root, static_cast<std::int16_t>(place.x - border),
                          static_cast<std::int16_t>(place.y - border),
                          static_cast<std::uint16_t>(place.width), static_cast<std::uint16_t>(place.height),
                          border, XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
                          XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_COLORMAP, &values);
    xcb_free_colormap(use, values.colormap);
    const std::string name = instance + '\0' + "Painter" + '\0';
    xcb_change_property(use, XCB_PROP_MODE_REPLACE, made.window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(name.size()), name.data());
    paint(made);
    map(made);
    return made;
  }
  /// The server itself repaints what comes to light.
  void paint(const PaintedWindow& window) const;
  void map(const PaintedWindow& window) const { xcb_map_window(Use(*this), window.window), sync(); }
  void unmap(const PaintedWindow& window) const { xcb_unmap_window(Use(*this), window.window), sync(); }
  /// As a window manager does.
  void minimize(const PaintedWindow& window) const {
    const X11Connection::Use use(*connection_);
    const auto state = use.reply(xcb_intern_atom(use, 0, 8, "WM_STATE"), xcb_intern_atom_reply);
    constexpr std::array<std::uint32_t, 2> kIconic{3, XCB_NONE};
    xcb_change_property(use, XCB_PROP_MODE_REPLACE, window.window, state->atom, state->atom, 32, 2,
                        kIconic.data());
    unmap(window);
  }
  void destroy(const PaintedWindow& window) const { xcb_destroy_window(Use(*this), window.window), sync(); }
  void place(PaintedWindow& window, const PixelRect& place) const {
    window.place = place;
    const std::array<std::int32_t, 4> values{place.x, place.y, place.width, place.height};
    xcb_configure_window(Use(*this), window.window, 0xF, values.data()), sync();
  }
  void shape(PaintedWindow& window, std::vector<PixelRect> parts) const {
    std::vector<xcb_rectangle_t> rects;
    for (const PixelRect& part : parts) {
      rects.push_back({static_cast<std::int16_t>(part.x), static_cast<std::int16_t>(part.y),
                       static_cast<std::uint16_t>(part.width), static_cast<std::uint16_t>(part.height)});
    }
    xcb_shape_rectangles(Use(*this), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, 0, window.window, 0, 0,
                         static_cast<std::uint32_t>(rects.size()), rects.data());
    window.shape = std::move(parts);
    sync();
  }
  void setTitle(const PaintedWindow& window, const std::string& title) const {
    xcb_change_property(Use(*this), XCB_PROP_MODE_REPLACE, window.window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING,
                        8, static_cast<std::uint32_t>(title.size()), title.data());
    sync();
  }

 private:
  /// For one request.
  struct Use : X11Connection::Use {
    explicit Use(const WindowPainter& painter) : X11Connection::Use(*painter.connection_) {}
  };
  std::shared_ptr<X11Connection> connection_;
};

/// Alpha, red, green, blue of a square, as far as a format has bits for them.
inline std::array<std::uint32_t, 4> squareColor(std::uint32_t column, std::uint32_t row, std::uint32_t seed,
                                                bool hasAlpha) {
  const std::uint32_t alpha = hasAlpha ? (column + row) % 3 * 127 : 255;  // 0, 127 or 254
  const auto part = [&](std::uint32_t value) { return value % 256 * alpha / 255; };
  return {alpha, part(column * 29 + seed * 71), part(row * 37 + seed * 13), part(seed * 97 + column * row)};
}

inline void WindowPainter::paint(const PaintedWindow& window) const {
  const X11Connection::Use use(*connection_);
  const X11PixelFormat& format = window.format;
  const xcb_pixmap_t picture = xcb_generate_id(use);
  const xcb_gcontext_t gc = xcb_generate_id(use);
  xcb_create_pixmap(use, static_cast<std::uint8_t>(format.depth), picture, window.window, kLargest, kLargest);
  xcb_create_gc(use, gc, picture, 0, nullptr);
  const auto put = [](std::uint32_t value, std::uint32_t mask) {
    if (mask == 0) return 0U;  // no colours of its own
    const int shift = std::countr_zero(mask);
    return (value * (mask >> shift) + 127) / 255 << shift;
  };
  for (std::uint32_t row = 0; row < kLargest / kSquare; ++row) {
    for (std::uint32_t column = 0; column < kLargest / kSquare; ++column) {
      const auto color = squareColor(column, row, window.seed, format.depth == 32);
      std::uint32_t pixel =
          put(color[1], format.redMask) | put(color[2], format.greenMask) | put(color[3], format.blueMask);
      if (format.depth == 32) pixel |= color[0] << 24;
      xcb_change_gc(use, gc, XCB_GC_FOREGROUND, &pixel);
      const xcb_rectangle_t square{static_cast<std::int16_t>(column * kSquare),
                                   static_cast<std::int16_t>(row * kSquare), kSquare, kSquare};
      xcb_poly_fill_rectangle(use, picture, gc, 1, &square);
    }
  }
  xcb_change_window_attributes(use, window.window, XCB_CW_BACK_PIXMAP, &picture);
  xcb_clear_area(use, 0, window.window, 0, 0, 0, 0);
  xcb_free_gc(use, gc);
  xcb_free_pixmap(use, picture);
  sync();
}

inline Bgra PaintedWindow::at(int x, int y) const {
  const auto square = [](int distance) {
    return static_cast<std::uint32_t>(distance % WindowPainter::kLargest / WindowPainter::kSquare);
  };
  const auto color = squareColor(square(x - place.x), square(y - place.y), seed, format.depth == 32);
  const auto kept = [](std::uint32_t value, std::uint32_t mask) {
    const std::uint32_t most = mask >> std::countr_zero(mask);
    return static_cast<int>(((value * most + 127) / 255 * 255 + most / 2) / most);
  };
  return {kept(color[3], format.blueMask), kept(color[2], format.greenMask), kept(color[1], format.redMask),
          static_cast<int>(color[0])};
}

/// What a picture shows at a place of the root, the first window at the back.
inline Bgra expectedAt(const std::vector<PaintedWindow>& windows, int x, int y, bool isOpaque) {
  Bgra pixel{};
  for (const PaintedWindow& window : windows) {
    if (!window.covers(x, y)) continue;
    Bgra over = window.at(x, y);
    if (isOpaque) over[3] = 255;
    for (std::size_t i = 0; i < 4; ++i) {
      pixel[i] = std::min(255, over[i] + pixel[i] * (255 - over[3]) / 255);
    }
  }
  return pixel;
}

/// Compares every pixel of a picture of that area; blending may round either way.
inline testing::AssertionResult shows(const std::byte* bytes, std::size_t bytesPerRow, bool hasAlpha,
                                      const PixelRect& area, const std::vector<PaintedWindow>& windows,
                                      bool isOpaque) {
  for (int y = 0; y < area.height; ++y) {
    const std::byte* pixel = bytes + static_cast<std::size_t>(y) * bytesPerRow;
    for (int x = 0; x < area.width; ++x, pixel += 4) {
      const Bgra expected = expectedAt(windows, area.x + x, area.y + y, isOpaque);
      for (std::size_t i = 0; i < (hasAlpha ? 4 : 3); ++i) {
        const int value = std::to_integer<int>(pixel[i]);
        if (std::abs(value - expected[i]) <= 1) continue;
        return testing::AssertionFailure() << "component " << i << " at " << area.x + x << ", " << area.y + y
                                           << " is " << value << " instead of " << expected[i];
      }
    }
  }
  return testing::AssertionSuccess();
}

}  // namespace qeltest
