#pragma once

#include <string>

namespace qelvideo {

/// The text with each control character, which a terminal might obey, shown as "?". Names are chosen by
/// devices and by other people's programs.
[[nodiscard]] std::string printable(const std::string& text);

}  // namespace qelvideo
