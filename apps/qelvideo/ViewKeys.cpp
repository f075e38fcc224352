#include "ViewKeys.h"

#include <algorithm>
#include <array>

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

struct Key {
  std::string_view name;
  ViewAction action;
  std::string_view help;  ///< empty: not told
};

constexpr std::array keys{
    Key{"f", ViewAction::fit, "f  show the whole picture"},
    Key{"c", ViewAction::fill, "c  cover the view with the picture"},
    Key{"F", ViewAction::fill, ""},
    Key{"a", ViewAction::automatic, "a  cover when picture and view are both wide or both tall, else fit"},
    Key{"o", ViewAction::nextOrientation, "o  next orientation"},
    Key{"O", ViewAction::previousOrientation, "O  orientation before"},
    Key{"b", ViewAction::moreBlur, "b  more blur"},
    Key{"B", ViewAction::lessBlur, "B  less blur"},
    Key{"0", ViewAction::noBlur, "0  no blur"},
    Key{"g", ViewAction::nextBackground, "g  next background colour"},
    Key{"t", ViewAction::toggleAnimation, "t  show changes of orientation as a turn, or not"},
    Key{"s", ViewAction::screenshot, "s  save a picture of the view"},
    Key{"h", ViewAction::help, "h  these lines"},
    Key{"?", ViewAction::help, ""},
    Key{"q", ViewAction::quit, "q  end"},
    Key{"Escape", ViewAction::quit, ""},
    Key{"\x1b", ViewAction::quit, ""},
};

/// Of the picture's side; each step is twice as strong as the one before. The last one is as strong as it
/// gets for pictures of 512 pixels and more.
constexpr std::array blurRadii{0.0F, 0.001F, 0.002F, 0.004F, 0.008F, 0.016F, 0.032F};

/// The next of the known radii above or below any radius.
float blurAbove(float radius) {
  const auto above = std::ranges::upper_bound(blurRadii, radius);
  return above == blurRadii.end() ? blurRadii.back() : *above;
}
float blurBelow(float radius) {
  const auto notBelow = std::ranges::lower_bound(blurRadii, radius);
  return notBelow == blurRadii.begin() ? blurRadii.front() : *(notBelow - 1);
}

/// The colours that the key goes through, the first one after any other.
constexpr std::array<NSColor::RGBA, 4> backgrounds{
    {{0, 0, 0, 1}, {1, 1, 1, 1}, {0.5, 0.5, 0.5, 1}, {0, 0.6, 0.2, 1}}};

std::shared_ptr<const NSColor> backgroundAfter(const std::shared_ptr<const NSColor>& color) {
  // No colour is shown as black.
  const auto now = color ? color->usingDeviceRGBColorSpace() : std::optional(backgrounds.front());
  const auto found = now ? std::ranges::find(backgrounds, *now) : backgrounds.end();
  const bool isLast = found == backgrounds.end() || found + 1 == backgrounds.end();
  const NSColor::RGBA& next = isLast ? backgrounds.front() : *(found + 1);
  return NSColor::deviceRGB(next.red, next.green, next.blue, next.alpha);
}

CGImagePropertyOrientation turned(CGImagePropertyOrientation orientation, int steps) {
  constexpr int count = 8;  // they are numbered from 1
  const int index = (static_cast<int>(orientation) - 1 + steps + count) % count;
  return static_cast<CGImagePropertyOrientation>(index + 1);
}

std::string_view placingName(ViewOptions::Placing placing) {
  switch (placing) {
    case ViewOptions::Placing::fill:
      return "covering";
    case ViewOptions::Placing::automatic:
      return "fitting automatically";
    case ViewOptions::Placing::fit:
    default:
      return "fitting";
  }
}

}  // namespace

std::optional<ViewAction> viewAction(std::string_view key) {
  const auto found = std::ranges::find(keys, key, &Key::name);
  return found == keys.end() ? std::nullopt : std::optional(found->action);
}

std::string viewKeysText() {
  std::string text;
  for (const Key& key : keys) {
    if (!key.help.empty()) text += (text.empty() ? "" : "\n") + std::string(key.help);
  }
  return text;
}

ViewOptions changed(ViewOptions options, ViewAction action) {
  switch (action) {
    case ViewAction::fit:
      options.placing = ViewOptions::Placing::fit;
      break;
    case ViewAction::fill:
      options.placing = ViewOptions::Placing::fill;
      break;
    case ViewAction::automatic:
      options.placing = ViewOptions::Placing::automatic;
      break;
    case ViewAction::nextOrientation:
      options.orientation = turned(options.orientation, 1);
      break;
    case ViewAction::previousOrientation:
      options.orientation = turned(options.orientation, -1);
      break;
    case ViewAction::moreBlur:
      options.blurRadius = blurAbove(options.blurRadius);
      break;
    case ViewAction::lessBlur:
      options.blurRadius = blurBelow(options.blurRadius);
      break;
    case ViewAction::noBlur:
      options.blurRadius = 0;
      break;
    case ViewAction::nextBackground:
      options.background = backgroundAfter(options.background);
      break;
    case ViewAction::toggleAnimation:
      options.animates = !options.animates;
      break;
    case ViewAction::screenshot:
    case ViewAction::help:
    case ViewAction::quit:
    default:
      break;
  }
  return options;
}

std::string describe(const ViewOptions& options) {
  return std::string(placingName(options.placing)) + ", orientation " +
         std::string(orientationName(options.orientation)) + (options.animates ? ", turns animated" : "");
}

}  // namespace qelvideo
