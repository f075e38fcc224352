#include "platform/linux/x11/X11Toolkit.h"

#include <array>
#include <string_view>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::uint8_t kDepth = 24;

bool isTrueColor(const xcb_visualtype_t* visual) {
  return visual && visual->_class == XCB_VISUAL_CLASS_TRUE_COLOR;
}

/// The root's visual where it serves, since everything else on the screen has it; `XCB_NONE` when there
/// is none.
xcb_visualid_t trueColorVisual(const X11Connection& connection) {
  const xcb_screen_t& screen = connection.screen();
  if (screen.root_depth == kDepth && isTrueColor(connection.visual(screen.root_visual))) {
    return screen.root_visual;
  }
  for (auto depths = xcb_screen_allowed_depths_iterator(&screen); depths.rem > 0; xcb_depth_next(&depths)) {
    if (depths.data->depth != kDepth) continue;
    for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem > 0;
         xcb_visualtype_next(&visuals)) {
      if (isTrueColor(visuals.data)) return visuals.data->visual_id;
    }
  }
  return XCB_NONE;
}

X11Atoms internAtoms(X11Connection& connection) {
  using Name = std::pair<std::string_view, xcb_atom_t X11Atoms::*>;
  constexpr std::array<Name, 7> kNames{{
      {"UTF8_STRING", &X11Atoms::utf8String},
      {"WM_PROTOCOLS", &X11Atoms::wmProtocols},
      {"WM_DELETE_WINDOW", &X11Atoms::wmDeleteWindow},
      {"_NET_WM_PING", &X11Atoms::netWmPing},
      {"_NET_WM_NAME", &X11Atoms::netWmName},
      {"_NET_WM_PID", &X11Atoms::netWmPid},
      {"_NET_ACTIVE_WINDOW", &X11Atoms::netActiveWindow},
  }};
  const X11Connection::Use use(connection);
  std::array<xcb_intern_atom_cookie_t, kNames.size()> cookies{};
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    const std::string_view name = kNames[i].first;
    cookies[i] = xcb_intern_atom(use, 0, static_cast<std::uint16_t>(name.size()), name.data());
  }
  X11Atoms atoms;
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    if (const auto reply = use.reply(cookies[i], xcb_intern_atom_reply))
      atoms.*kNames[i].second = reply->atom;
  }
  return atoms;
}

}  // namespace

std::shared_ptr<X11Toolkit> X11Toolkit::make(std::shared_ptr<X11Connection> connection, EventLoop& loop,
                                             const TroubleHandler& trouble) {
  struct Made : X11Toolkit {
    Made(std::shared_ptr<X11Connection> server, EventLoop& mainLoop, xcb_visualid_t visual)
        : X11Toolkit(std::move(server), mainLoop, visual) {}
  };
  if (!connection->isAlive()) return nullptr;
  const xcb_visualid_t visual = trueColorVisual(*connection);
  if (visual == XCB_NONE) {
    if (trouble) trouble("Windows cannot be shown: the X server has no visual with 24 bits of true colour");
    return nullptr;
  }
  return std::make_shared<Made>(std::move(connection), loop, visual);
}

X11Toolkit::X11Toolkit(std::shared_ptr<X11Connection> connection, EventLoop& loop, xcb_visualid_t visual)
    : connection_(std::move(connection)),
      loop_(loop),
      visual_(visual),
      colormap_(connection_->screen().default_colormap),
      atoms_(internAtoms(*connection_)),
      keyboard_(connection_) {
  if (visual_ == connection_->screen().root_visual) return;
  const X11Connection::Use use(*connection_);
  colormap_ = xcb_generate_id(use);
  xcb_create_colormap(use, XCB_COLORMAP_ALLOC_NONE, colormap_, connection_->root(), visual_);
}

X11Toolkit::~X11Toolkit() {
  if (colormap_ == connection_->screen().default_colormap) return;
  const X11Connection::Use use(*connection_);
  xcb_free_colormap(use, colormap_);
  xcb_flush(use);
}

xcb_window_t X11Toolkit::createWindow(xcb_window_t parent, std::uint16_t width, std::uint16_t height) const {
  constexpr std::uint32_t kBlack = 0;
  // What is left out comes from the parent, and does not fit one of another depth.
  xcb_create_window_value_list_t values{};
  values.background_pixel = kBlack;
  values.border_pixel = kBlack;
  values.bit_gravity = XCB_GRAVITY_NORTH_WEST;
  values.colormap = colormap_;
  const X11Connection::Use use(*connection_);
  const xcb_window_t id = xcb_generate_id(use);
  const auto created = xcb_create_window_aux_checked(
      use, kDepth, id, parent, 0, 0, width, height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, visual_,
      XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_BIT_GRAVITY | XCB_CW_COLORMAP, &values);
  return use.succeeded(created) ? id : XCB_NONE;
}

}  // namespace QelUtilVideo
