#include "ViewKeys.h"

#include <algorithm>
#include <cstdint>

namespace qelvideo {

using QelUtilVideo::CGImagePropertyOrientation;
using QelUtilVideo::NSColor;

namespace {

struct Binding {
  std::array<std::string_view, 2> keys;  ///< the second one may be empty
  ViewAction action;
  std::string_view help;  ///< empty: not told
};

constexpr std::array bindings{
    Binding{{"f", ""}, ViewAction::fit, "show the whole picture"},
    Binding{{"F", "c"}, ViewAction::fill, "cover the view with the picture"},
    Binding{
        {"a", ""}, ViewAction::automatic, "cover when picture and view are both wide or both tall, else fit"},
    Binding{{"o", ""}, ViewAction::nextOrientation, "next orientation"},
    Binding{{"O", ""}, ViewAction::previousOrientation, "previous orientation"},
    // Views draw sharp pictures only; a key that does nothing is not worth a line.
    Binding{{"b", ""}, ViewAction::moreBlur, ""},
    Binding{{"B", ""}, ViewAction::lessBlur, ""},
    Binding{{"0", ""}, ViewAction::noBlur, ""},
    Binding{{"g", ""}, ViewAction::nextBackground, "next background colour"},
    Binding{{"t", ""}, ViewAction::toggleAnimation, "show changes of orientation as a turn, or at once"},
    Binding{{"s", ""}, ViewAction::saveScreenshot, "save what the view shows"},
    Binding{{"h", "?"}, ViewAction::showHelp, "show these keys"},
    Binding{{"q", "Escape"}, ViewAction::quit, "quit"},
};

/// Pixels; each step is about twice as strong as the one before.
constexpr std::array blurRadii{0.0F, 2.0F, 4.0F, 8.0F, 16.0F, 32.0F, 64.0F};

}  // namespace

std::optional<ViewAction> viewAction(std::string_view key) {
  if (key.empty()) return std::nullopt;
  const auto found = std::ranges::find_if(bindings, [key](const Binding& binding) {
    return std::ranges::find(binding.keys, key) != binding.keys.end();
  });
  return found == bindings.end() ? std::nullopt : std::optional(found->action);
}

std::string viewKeysText() {
  constexpr std::size_t keysWidth = 12;
  std::string text = "Keys:";
  for (const Binding& binding : bindings) {
    if (binding.help.empty()) continue;
    std::string keys(binding.keys[0]);
    if (!binding.keys[1].empty()) keys.append(", ").append(binding.keys[1]);
    keys.resize(keysWidth, ' ');
    text.append("\n  ").append(keys).append(binding.help);
  }
  return text;
}

ViewState::ViewState(const ViewOptions& options)
    : options_(options),
      backgrounds_{options.background, NSColor::deviceWhite(0), NSColor::deviceWhite(0.5),
                   NSColor::deviceWhite(1), NSColor::deviceRGB(0.15, 0.3, 0.45, 1)} {
  // Without a colour of one's own, black is there already.
  if (!options.background) backgrounds_.erase(backgrounds_.begin() + 1);
}

bool ViewState::apply(ViewAction action) {
  switch (action) {
    case ViewAction::fit:
      options_.placing = ViewOptions::Placing::fit;
      return true;
    case ViewAction::fill:
      options_.placing = ViewOptions::Placing::fill;
      return true;
    case ViewAction::automatic:
      options_.placing = ViewOptions::Placing::automatic;
      return true;
    case ViewAction::nextOrientation:
      turn(1);
      return true;
    case ViewAction::previousOrientation:
      turn(-1);
      return true;
    case ViewAction::moreBlur:
      blur(1);
      return true;
    case ViewAction::lessBlur:
      blur(-1);
      return true;
    case ViewAction::noBlur:
      options_.blurRadius = 0;
      return true;
    case ViewAction::nextBackground:
      changeBackground();
      return true;
    case ViewAction::toggleAnimation:
      options_.animates = !options_.animates;
      return true;
    case ViewAction::saveScreenshot:
    case ViewAction::showHelp:
    case ViewAction::quit:
      break;
  }
  return false;
}

/// The orientations are numbered from 1; after the last comes the first.
void ViewState::turn(int steps) {
  constexpr int count = 8;
  const int index = static_cast<int>(options_.orientation) - 1;
  options_.orientation =
      CGImagePropertyOrientation{static_cast<std::uint32_t>((index + steps + count) % count + 1)};
}

/// To the next of the known radii, up or down, from any radius.
void ViewState::blur(int steps) {
  const auto above = std::ranges::upper_bound(blurRadii, options_.blurRadius);
  const auto notBelow = std::ranges::lower_bound(blurRadii, options_.blurRadius);
  if (steps > 0) {
    options_.blurRadius = above == blurRadii.end() ? blurRadii.back() : *above;
  } else {
    options_.blurRadius = notBelow == blurRadii.begin() ? blurRadii.front() : *(notBelow - 1);
  }
}

void ViewState::changeBackground() {
  background_ = (background_ + 1) % backgrounds_.size();
  options_.background = backgrounds_[background_];
}

}  // namespace qelvideo
