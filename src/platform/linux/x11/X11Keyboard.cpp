#include "platform/linux/x11/X11Keyboard.h"

#include "platform/linux/x11/XkbProtocol.h"

#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::uint16_t kNewKeyboardParts = XCB_XKB_NKN_DETAIL_KEYCODES | XCB_XKB_NKN_DETAIL_DEVICE_ID;
constexpr std::uint16_t kMapParts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS |
                                    XCB_XKB_MAP_PART_MODIFIER_MAP | XCB_XKB_MAP_PART_EXPLICIT_COMPONENTS |
                                    XCB_XKB_MAP_PART_KEY_ACTIONS | XCB_XKB_MAP_PART_VIRTUAL_MODS |
                                    XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;

std::uint32_t modifierFlagsOf(std::uint16_t state) {
  constexpr std::array<std::pair<int, std::uint32_t>, 4> kFlags{{
      {XCB_MOD_MASK_SHIFT, NSEventModifierFlagShift},
      {XCB_MOD_MASK_CONTROL, NSEventModifierFlagControl},
      {XCB_MOD_MASK_1, NSEventModifierFlagOption},
      {XCB_MOD_MASK_4, NSEventModifierFlagCommand},
  }};
  std::uint32_t flags = NSEventModifierFlagNone;
  for (const auto& [mask, flag] : kFlags) {
    if (state & mask) flags |= flag;
  }
  return flags;
}

std::string charactersOf(xkb_state* state, xkb_keycode_t key) {
  std::string text(static_cast<std::size_t>(xkb_state_key_get_utf8(state, key, nullptr, 0)), '\0');
  // The terminating null lands on the string's own.
  xkb_state_key_get_utf8(state, key, text.data(), text.size() + 1);
  return text;
}

std::string nameOf(xkb_keysym_t symbol) {
  constexpr std::size_t kLongest = 64;
  if (symbol == XKB_KEY_NoSymbol) return {};
  std::array<char, kLongest> name{};
  return xkb_keysym_get_name(symbol, name.data(), name.size()) > 0 ? name.data() : "";
}

}  // namespace

/// Notes that the layout which was loaded is not the one in force.
class X11Keyboard::LayoutWatch final : public X11EventSink {
 public:
  explicit LayoutWatch(std::uint8_t firstEvent) : firstEvent_(firstEvent) {}

  /// Whether it has to be loaded; asks once for each change.
  bool takeStale() { return isStale_.exchange(false); }

  // X11EventSink
  void handleEvent(const xcb_generic_event_t& event) override {
    // One event number for all of the extension's; which one it is follows in the first byte.
    if (event.response_type != firstEvent_) return;
    if (event.pad0 == XCB_XKB_NEW_KEYBOARD_NOTIFY || event.pad0 == XCB_XKB_MAP_NOTIFY) isStale_ = true;
  }
  void handleLoss() override {}

 private:
  const std::uint8_t firstEvent_;
  std::atomic<bool> isStale_{true};
};

void X11Keyboard::Unref::operator()(xkb_context* context) const { xkb_context_unref(context); }
void X11Keyboard::Unref::operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
void X11Keyboard::Unref::operator()(xkb_state* state) const { xkb_state_unref(state); }

X11Keyboard::X11Keyboard(std::shared_ptr<X11Connection> connection) : connection_(std::move(connection)) {
  context_.reset(xkb_context_new(
      static_cast<xkb_context_flags>(XKB_CONTEXT_NO_DEFAULT_INCLUDES | XKB_CONTEXT_NO_ENVIRONMENT_NAMES)));
  if (!context_) return;
  // Its messages would go to the host's standard error.
  xkb_context_set_log_fn(context_.get(), [](xkb_context*, xkb_log_level, const char*, va_list) {});
  const X11Connection::Use use(*connection_);
  std::uint8_t firstEvent = 0;
  if (!xkb_x11_setup_xkb_extension(use, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                   XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &firstEvent,
                                   nullptr)) {
    return;
  }
  layoutWatch_ = std::make_shared<LayoutWatch>(firstEvent);
  connection_->addSink(layoutWatch_);
  selectLayoutChanges();
}

X11Keyboard::~X11Keyboard() = default;

void X11Keyboard::selectLayoutChanges() {
  constexpr std::uint16_t kEvents = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
  constexpr std::uint32_t kRepeatsAsPresses = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
  xcb_xkb_select_events_details_t details{};
  details.affectNewKeyboard = kNewKeyboardParts;
  details.newKeyboardDetails = kNewKeyboardParts;
  const X11Connection::Use use(*connection_);
  xcb_xkb_select_events_aux(use, XCB_XKB_ID_USE_CORE_KBD, kEvents, 0, 0, kMapParts, kMapParts, &details);
  (void)use.reply(
      xcb_xkb_per_client_flags(use, XCB_XKB_ID_USE_CORE_KBD, kRepeatsAsPresses, kRepeatsAsPresses, 0, 0, 0),
      xcb_xkb_per_client_flags_reply);
}

NSEvent X11Keyboard::describe(const KeyPress& press) {
  NSEvent event;
  event.modifierFlags = modifierFlagsOf(press.state);
  event.isARepeat = press.isARepeat;
  // Asked for with the first key after a change, not with each change.
  if (layoutWatch_ && layoutWatch_->takeStale()) loadLayout();
  if (!state_) return event;
  // The event itself says which modifiers and which group of the layout are in force.
  constexpr std::uint32_t kModifiers = 0xFF;
  constexpr int kGroupShift = 13;
  constexpr std::uint32_t kGroups = 3;
  xkb_state_update_mask(state_.get(), press.state & kModifiers, 0, 0, 0, 0,
                        (press.state >> kGroupShift) & kGroups);
  event.characters = charactersOf(state_.get(), press.keycode);
  event.keyName = nameOf(xkb_state_key_get_one_sym(state_.get(), press.keycode));
  return event;
}

void X11Keyboard::loadLayout() {
  state_.reset();
  keymap_.reset();
  const X11Connection::Use use(*connection_);
  const std::int32_t device = xkb_x11_get_core_keyboard_device_id(use);
  if (device < 0) return;
  keymap_.reset(xkb_x11_keymap_new_from_device(context_.get(), use, device, XKB_KEYMAP_COMPILE_NO_FLAGS));
  if (keymap_) state_.reset(xkb_state_new(keymap_.get()));
}

}  // namespace QelUtilVideo
