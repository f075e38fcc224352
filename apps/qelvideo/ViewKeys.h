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
  moreBlur,
  lessBlur,
  noBlur,
  nextBackground,
  toggleAnimation,
  screenshot,
  help,
  quit,
};

/// What the key asks for; absent for a key without a meaning. `key` is the text that it types, or its name
/// as `KeyDecoder` has it.
[[nodiscard]] std::optional<ViewAction> viewAction(std::string_view key);
/// One line a key, for the person at the terminal.
[[nodiscard]] std::string viewKeysText();

/// The options after the action; those that are no matter of options stay as they are.
[[nodiscard]] ViewOptions changed(ViewOptions options, ViewAction action);
/// How the view is set, in a few words.
[[nodiscard]] std::string describe(const ViewOptions& options);

}  // namespace qelvideo
