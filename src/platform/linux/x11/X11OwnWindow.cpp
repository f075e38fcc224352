#include "platform/linux/x11/X11OwnWindow.h"

#include "platform/linux/x11/WindowManager.h"
#include "platform/linux/x11/X11Pixels.h"

#include <errno.h>
#include <limits.h>
#include <unistd.h>
#include <xcb/xcb_icccm.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <string_view>
#include <utility>

namespace QelUtilVideo {

namespace {

/// No request may be longer than the server takes; nobody reads as much.
constexpr std::size_t kLongestTitle = 4096;

bool isContinuation(char byte) {
  constexpr unsigned kMask = 0xC0;
  constexpr unsigned kMark = 0x80;
  return (static_cast<unsigned char>(byte) & kMask) == kMark;
}

/// The beginning of UTF-8 text, cut between two characters.
std::string_view beginning(std::string_view text) {
  constexpr std::size_t kMostContinuations = 3;
  if (text.size() <= kLongestTitle) return text;
  std::size_t end = kLongestTitle;
  while (end > kLongestTitle - kMostContinuations && isContinuation(text[end])) --end;
  return text.substr(0, end);
}

/// UTF-8 text for window managers that know only Latin-1; a question mark for the rest.
std::string latin1(std::string_view text) {
  constexpr std::string_view kLeadsOfUpperHalf = "\xC2\xC3";
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char byte = text[i];
    if (isContinuation(byte)) continue;
    if (static_cast<signed char>(byte) >= 0) {
      result += byte;
    } else if (kLeadsOfUpperHalf.find(byte) != std::string_view::npos && i + 1 < text.size() &&
               isContinuation(text[i + 1])) {
      // The second byte is the character's own in the first half of the two, and 64 below it in the other.
      result += static_cast<char>(text[i + 1] + (byte == kLeadsOfUpperHalf[1] ? 0x40 : 0));
    } else {
      result += '?';
    }
  }
  return result;
}

/// Instance and class, each with the zero that ends it.
std::string windowClass() {
  const std::string instance = program_invocation_short_name;
  std::string name = instance;
  if (!name.empty()) name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
  return instance + '\0' + name + '\0';
}

std::string hostName() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

/// A window has no side without a pixel.
std::uint16_t sideOf(double points) { return std::max<std::uint16_t>(x11Length(points), 1); }

std::uint32_t lengthOf(std::string_view text) { return static_cast<std::uint32_t>(text.size()); }

}  // namespace

std::unique_ptr<X11OwnWindow> X11OwnWindow::make(std::shared_ptr<X11Toolkit> toolkit, CGSize size,
                                                 const std::string& title,
                                                 std::weak_ptr<WindowClient> client) {
  const xcb_window_t id =
      toolkit->createWindow(toolkit->connection()->root(), sideOf(size.width), sideOf(size.height));
  if (id == XCB_NONE) return nullptr;
  auto window = std::make_unique<X11OwnWindow>(std::move(toolkit), id, std::move(client));
  window->introduceItself();
  window->setTitle(title);
  return window;
}

X11OwnWindow::X11OwnWindow(std::shared_ptr<X11Toolkit> toolkit, xcb_window_t id,
                           std::weak_ptr<WindowClient> client)
    : toolkit_(std::move(toolkit)),
      window_(toolkit_->connection(), id),
      // On the window itself: a key goes up to it from the surface under the pointer.
      keys_(toolkit_->connection(), id,
            XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE | XCB_EVENT_MASK_FOCUS_CHANGE),
      watch_(toolkit_, id, WindowEvents::Owner::we, std::move(client)) {}

X11OwnWindow::~X11OwnWindow() {
  if (watch_.isGone()) window_.forget();
}

void X11OwnWindow::introduceItself() {
  const X11Atoms& atoms = toolkit_->atoms();
  const std::string names = windowClass();
  const std::string host = hostName();
  const std::uint32_t process = static_cast<std::uint32_t>(::getpid());
  std::array protocols{atoms.wmDeleteWindow, atoms.netWmPing};
  xcb_icccm_wm_hints_t hints{};
  xcb_icccm_wm_hints_set_input(&hints, 1);
  xcb_icccm_wm_hints_set_normal(&hints);
  const CGSize size = watch_.state().frame.size;
  xcb_size_hints_t sizes{};
  xcb_icccm_size_hints_set_size(&sizes, 0, static_cast<std::int32_t>(size.width),
                                static_cast<std::int32_t>(size.height));
  xcb_icccm_size_hints_set_win_gravity(&sizes, XCB_GRAVITY_NORTH_WEST);

  const X11Connection::Use use(*toolkit_->connection());
  xcb_icccm_set_wm_class(use, window_.id(), lengthOf(names), names.data());
  xcb_icccm_set_wm_client_machine(use, window_.id(), XCB_ATOM_STRING, 8, lengthOf(host), host.data());
  xcb_icccm_set_wm_protocols(use, window_.id(), atoms.wmProtocols, protocols.size(), protocols.data());
  xcb_icccm_set_wm_hints(use, window_.id(), &hints);
  xcb_icccm_set_wm_normal_hints(use, window_.id(), &sizes);
  xcb_change_property(use, XCB_PROP_MODE_REPLACE, window_.id(), atoms.netWmPid, XCB_ATOM_CARDINAL, 32, 1,
                      &process);
  xcb_flush(use);
}

void X11OwnWindow::setTitle(const std::string& title) {
  if (isGone()) return;
  const std::string_view shown = beginning(title);
  const std::string plain = latin1(shown);
  const X11Connection::Use use(*toolkit_->connection());
  xcb_change_property(use, XCB_PROP_MODE_REPLACE, window_.id(), toolkit_->atoms().netWmName,
                      toolkit_->atoms().utf8String, 8, lengthOf(shown), shown.data());
  xcb_icccm_set_wm_name(use, window_.id(), XCB_ATOM_STRING, 8, lengthOf(plain), plain.data());
  xcb_flush(use);
}

void X11OwnWindow::setContentSize(CGSize size) {
  if (isGone()) return;
  const std::array<std::uint32_t, 2> sides{sideOf(size.width), sideOf(size.height)};
  watch_.expect(size);
  const X11Connection::Use use(*toolkit_->connection());
  xcb_configure_window(use, window_.id(), XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, sides.data());
  xcb_flush(use);
}

void X11OwnWindow::orderFront() {
  if (isGone()) return;
  constexpr std::uint32_t kAbove = XCB_STACK_MODE_ABOVE;
  const X11Connection::Use use(*toolkit_->connection());
  xcb_map_window(use, window_.id());
  xcb_configure_window(use, window_.id(), XCB_CONFIG_WINDOW_STACK_MODE, &kAbove);
  askForKeyboard(use);
  xcb_flush(use);
}

void X11OwnWindow::orderOut() {
  if (isGone()) return;
  const xcb_window_t root = toolkit_->connection()->root();
  xcb_unmap_notify_event_t withdrawal{};
  withdrawal.response_type = XCB_UNMAP_NOTIFY;
  withdrawal.event = root;
  withdrawal.window = window_.id();
  const X11Connection::Use use(*toolkit_->connection());
  xcb_unmap_window(use, window_.id());
  // For a window that is minimised, and so unmapped already, this alone says that it is wanted no more.
  sendToWindowManager(use, root, withdrawal);
}

void X11OwnWindow::askForKeyboard(const X11Connection::Use& use) const {
  const xcb_window_t root = toolkit_->connection()->root();
  if (!hasWindowManager(use, root)) {
    xcb_set_input_focus(use, XCB_INPUT_FOCUS_POINTER_ROOT, window_.id(), XCB_CURRENT_TIME);
    return;
  }
  constexpr std::uint32_t kFromAProgram = 1;
  xcb_client_message_event_t request{};
  request.response_type = XCB_CLIENT_MESSAGE;
  request.format = 32;
  request.window = window_.id();
  request.type = toolkit_->atoms().netActiveWindow;
  request.data.data32[0] = kFromAProgram;
  request.data.data32[1] = XCB_CURRENT_TIME;
  sendToWindowManager(use, root, request);
}

}  // namespace QelUtilVideo
