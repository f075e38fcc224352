#include "platform/linux/x11/windowserver/WindowPropertyReader.h"

#include "platform/linux/x11/PropertyValue.h"

#include <algorithm>
#include <string_view>

namespace QelUtilVideo {

namespace {

/// What is asked of each window, in this order.
enum Property : std::size_t {
  netName,
  legacyName,
  type,
  transientFor,
  state,
  opacity,
  opacityOfTop,
  frameExtents,
  windowClass,
  processIdentifier,
  clientMachine,
  gtkApplicationID,
  kdeDesktopFile,
};

constexpr std::array<std::string_view, WindowPropertyReader::kCount> kNames{"_NET_WM_NAME",
                                                                            "WM_NAME",
                                                                            "_NET_WM_WINDOW_TYPE",
                                                                            "WM_TRANSIENT_FOR",
                                                                            "_NET_WM_STATE",
                                                                            "_NET_WM_WINDOW_OPACITY",
                                                                            "_NET_WM_WINDOW_OPACITY",
                                                                            "_GTK_FRAME_EXTENTS",
                                                                            "WM_CLASS",
                                                                            "_NET_WM_PID",
                                                                            "WM_CLIENT_MACHINE",
                                                                            "_GTK_APPLICATION_ID",
                                                                            "_KDE_NET_WM_DESKTOP_FILE"};

constexpr std::array<std::string_view, 14> kTypeNames{
    "_NET_WM_WINDOW_TYPE_NORMAL",     "_NET_WM_WINDOW_TYPE_DESKTOP", "_NET_WM_WINDOW_TYPE_DOCK",
    "_NET_WM_WINDOW_TYPE_TOOLBAR",    "_NET_WM_WINDOW_TYPE_MENU",    "_NET_WM_WINDOW_TYPE_UTILITY",
    "_NET_WM_WINDOW_TYPE_SPLASH",     "_NET_WM_WINDOW_TYPE_DIALOG",  "_NET_WM_WINDOW_TYPE_DROPDOWN_MENU",
    "_NET_WM_WINDOW_TYPE_POPUP_MENU", "_NET_WM_WINDOW_TYPE_TOOLTIP", "_NET_WM_WINDOW_TYPE_NOTIFICATION",
    "_NET_WM_WINDOW_TYPE_COMBO",      "_NET_WM_WINDOW_TYPE_DND"};

/// Words of a value that are asked for: names of a megabyte are nobody's titles.
constexpr std::uint32_t kLongest = 1024;
constexpr std::uint32_t kMostClients = 1U << 16;

/// A property as the server sent it, which its value looks into.
struct Answer {
  XcbReply<xcb_get_property_reply_t> reply;
  xcb_atom_t utf8String;

  [[nodiscard]] PropertyValue value() const {
    if (!reply) return {PropertyType::other, 0, {}};
    return PropertyValue::ofReply(typeOf(reply->type), reply->format, reply->value_len, reply->length,
                                  xcb_get_property_value(reply.get()));
  }
  [[nodiscard]] std::optional<std::uint32_t> number(PropertyType wanted) const {
    const auto items = value().items(wanted);
    return items.empty() ? std::nullopt : std::optional(items.front());
  }

 private:
  [[nodiscard]] PropertyType typeOf(xcb_atom_t atom) const {
    if (atom == XCB_ATOM_STRING) return PropertyType::string;
    if (atom == utf8String) return PropertyType::utf8String;
    if (atom == XCB_ATOM_CARDINAL) return PropertyType::cardinal;
    if (atom == XCB_ATOM_ATOM) return PropertyType::atom;
    return atom == XCB_ATOM_WINDOW ? PropertyType::window : PropertyType::other;
  }
};

/// The first one of the list that is known: clients put the kind that fits best first.
std::optional<WindowType> firstKnown(const std::vector<std::uint32_t>& list,
                                     const std::vector<xcb_atom_t>& types) {
  for (const std::uint32_t atom : list) {
    const auto found = std::find(types.begin(), types.end(), atom);
    if (atom != XCB_ATOM_NONE && found != types.end()) return static_cast<WindowType>(found - types.begin());
  }
  return std::nullopt;
}

std::optional<std::array<std::uint32_t, 4>> fourNumbers(const std::vector<std::uint32_t>& items) {
  if (items.size() < 4) return std::nullopt;
  return std::array{items[0], items[1], items[2], items[3]};
}

std::optional<std::string> textOf(const Answer& answer) {
  auto text = answer.value().text();
  return text && text->empty() ? std::nullopt : text;
}

}  // namespace

WindowPropertyReader::WindowPropertyReader(X11Connection& connection) { intern(connection); }

void WindowPropertyReader::intern(X11Connection& connection) {
  const X11Connection::Use use(connection);
  std::vector<std::string_view> names(kNames.begin(), kNames.end());
  names.insert(names.end(), kTypeNames.begin(), kTypeNames.end());
  for (const std::string_view other :
       {"UTF8_STRING", "_NET_WM_STATE_MODAL", "_NET_CLIENT_LIST", "WM_STATE"}) {
    names.push_back(other);
  }
  std::vector<xcb_intern_atom_cookie_t> cookies;
  for (const std::string_view name : names) {
    cookies.push_back(xcb_intern_atom(use, 0, static_cast<std::uint16_t>(name.size()), name.data()));
  }
  std::vector<xcb_atom_t> atoms;
  for (const auto cookie : cookies) {
    const auto reply = use.reply(cookie, xcb_intern_atom_reply);
    atoms.push_back(reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE});
  }
  const auto types = atoms.begin() + kCount, others = types + kTypeNames.size();
  std::copy(atoms.begin(), types, properties_.begin());
  types_.assign(types, others);
  utf8String_ = others[0];
  modal_ = others[1];
  clientList_ = others[2];
  wmState_ = others[3];
}

WindowPropertyReader::Question WindowPropertyReader::ask(const X11Connection::Use& use, xcb_window_t window,
                                                         xcb_window_t top) const {
  Question question;
  for (std::size_t i = 0; i < kCount; ++i) {
    if (i == opacityOfTop && top == window) continue;
    question.cookies[i] =
        xcb_get_property(use, 0, i == opacityOfTop ? top : window, properties_[i], XCB_ATOM_ANY, 0, kLongest);
  }
  return question;
}

WindowProperties WindowPropertyReader::read(const X11Connection::Use& use, const Question& question) const {
  std::array<Answer, kCount> answers;
  for (std::size_t i = 0; i < kCount; ++i) {
    const bool wasAsked = question.cookies[i].sequence != 0;
    answers[i] = {wasAsked ? use.reply(question.cookies[i], xcb_get_property_reply) : nullptr, utf8String_};
  }
  WindowProperties properties;
  properties.netName = answers[netName].value().text();
  properties.legacyName = answers[legacyName].value().text();
  properties.type = firstKnown(answers[type].value().items(PropertyType::atom), types_);
  properties.transientFor = answers[transientFor].number(PropertyType::window).value_or(0);
  const auto states = answers[state].value().items(PropertyType::atom);
  properties.isModal = modal_ && std::find(states.begin(), states.end(), modal_) != states.end();
  properties.opacity = answers[opacity].number(PropertyType::cardinal);
  if (!properties.opacity) properties.opacity = answers[opacityOfTop].number(PropertyType::cardinal);
  properties.frameExtents = fourNumbers(answers[frameExtents].value().items(PropertyType::cardinal));
  const auto names = answers[windowClass].value().texts();
  if (!names.empty()) properties.instanceName = names[0];
  if (names.size() > 1) properties.className = names[1];
  properties.processIdentifier = answers[processIdentifier].number(PropertyType::cardinal);
  properties.clientMachine = textOf(answers[clientMachine]);
  properties.applicationID = textOf(answers[gtkApplicationID]);
  if (!properties.applicationID) properties.applicationID = textOf(answers[kdeDesktopFile]);
  return properties;
}

bool WindowPropertyReader::concerns(xcb_atom_t property) const {
  return property && std::find(properties_.begin(), properties_.end(), property) != properties_.end();
}

xcb_get_property_cookie_t WindowPropertyReader::askClients(const X11Connection::Use& use,
                                                           xcb_window_t root) const {
  return xcb_get_property(use, 0, root, clientList_, XCB_ATOM_WINDOW, 0, kMostClients);
}

std::optional<std::vector<xcb_window_t>> WindowPropertyReader::readClients(
    const X11Connection::Use& use, xcb_get_property_cookie_t asked) const {
  const Answer answer{use.reply(asked, xcb_get_property_reply), utf8String_};
  if (!answer.reply || answer.reply->type != XCB_ATOM_WINDOW) return std::nullopt;
  return answer.value().items(PropertyType::window);
}

xcb_get_property_cookie_t WindowPropertyReader::askState(const X11Connection::Use& use,
                                                         xcb_window_t window) const {
  return xcb_get_property(use, 0, window, wmState_, XCB_ATOM_ANY, 0, 1);
}

bool WindowPropertyReader::readState(const X11Connection::Use& use, xcb_get_property_cookie_t asked) {
  const auto reply = use.reply(asked, xcb_get_property_reply);
  return reply && reply->type != XCB_ATOM_NONE;
}

}  // namespace QelUtilVideo
