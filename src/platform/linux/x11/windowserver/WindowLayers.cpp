#include "platform/linux/x11/windowserver/WindowLayers.h"

namespace QelUtilVideo {

namespace {

constexpr std::int32_t kOrdinary = 0;
constexpr std::int32_t kSlideShow = 1;
constexpr std::int32_t kUtility = 3;
constexpr std::int32_t kDialog = 8;
constexpr std::int32_t kDock = 20;
constexpr std::int32_t kNotification = 25;
constexpr std::int32_t kPopUp = 101;

}  // namespace

std::int32_t windowLayer(const LayerFacts& facts) {
  switch (facts.type.value_or(WindowType::normal)) {
    case WindowType::desktop:
      return kDesktopLayer;
    case WindowType::dock:
      return kDock;
    case WindowType::notification:
      return kNotification;
    case WindowType::menu:
    case WindowType::dropdownMenu:
    case WindowType::popupMenu:
    case WindowType::tooltip:
    case WindowType::combo:
    case WindowType::dnd:
      return kPopUp;
    case WindowType::toolbar:
    case WindowType::utility:
      return facts.isOverrideRedirect ? kPopUp : kUtility;
    case WindowType::splash:
      return kDialog;
    case WindowType::normal:
    case WindowType::dialog:
      break;
  }
  const bool isDialog = facts.isTransient || facts.isModal;
  if (facts.isSlideShow && !isDialog) return kSlideShow;
  if (facts.isOverrideRedirect) return kPopUp;
  return isDialog ? kDialog : kOrdinary;
}

}  // namespace QelUtilVideo
