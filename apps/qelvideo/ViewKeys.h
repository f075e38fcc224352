#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ViewOptions.h"

namespace qelvideo {

/// What a person asks of a view by a key.
enum class ViewAction {
  fit,
  fill,
  automatic,
  nextOrientation,
  previousOrientation,
  moreBlur,
  lessBlur,
  noBlur,
  nextBackground,
  toggleAnimation,
  saveScreenshot,
  showHelp,
  quit,
};

/// What the key asks for: the character that it types, or its name where it types none, as in "Escape".
/// Absent for all other keys.
[[nodiscard]] std::optional<ViewAction> viewAction(std::string_view key);

/// The keys and what they do, for people; without a line feed at the end.
[[nodiscard]] std::string viewKeysText();

/// How a view shows its frames, as changed key by key.
class ViewState {
 public:
  /// Begins with the options; their background is the first of those to choose from.
  explicit ViewState(const ViewOptions& options);

  /// False: the action is about something else than the look of the view.
  bool apply(ViewAction action);
  [[nodiscard]] const ViewOptions& options() const { return options_; }

 private:
  void turn(int steps);
  void blur(int steps);
  void changeBackground();

  ViewOptions options_;
  std::vector<std::shared_ptr<const QelUtilVideo::NSColor>> backgrounds_;
  std::size_t background_ = 0;
};

}  // namespace qelvideo
