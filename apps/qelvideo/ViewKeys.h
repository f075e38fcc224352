#pragma once

#include <QelUtilVideo/CGImagePropertyOrientation.h>

#include <optional>
#include <string>
#include <string_view>

#include "ViewOptions.h"

namespace qelvideo {

/// What a key asks of a view.
enum class ViewAction {
  fit,
  fill,
  automatic,
  nextOrientation,
  previousOrientation,
  nextBackground,
  toggleAnimation,
  screenshot,
  help,
  quit,
};

/// What the key asks for; absent for a key without a meaning. `characters` is the text that it types.
[[nodiscard]] std::optional<ViewAction> viewAction(std::string_view characters);
/// One line a key, for the person at the terminal.
[[nodiscard]] std::string viewKeysText();

/// The options after the action; those that are no matter of options stay as they are.
[[nodiscard]] ViewOptions changed(ViewOptions options, ViewAction action);
/// How the view is set, in a few words.
[[nodiscard]] std::string describe(const ViewOptions& options);

}  // namespace qelvideo
