#pragma once

#include <string_view>

namespace QelUtilVideo {

/// Whether a driver's list of extensions, names with blanks between (null: none), holds this one.
[[nodiscard]] bool listsExtension(const char* list, std::string_view name);

/// Whether a renderer of this name is the processor, which nobody wants who has a choice.
[[nodiscard]] bool isSoftwareRenderer(std::string_view name);

}  // namespace QelUtilVideo
