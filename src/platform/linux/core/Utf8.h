#pragma once

#include <string>
#include <string_view>

namespace QelUtilVideo {

/// The bytes as sound UTF-8: each run of bytes that begins no character, or breaks off in the middle of
/// one, becomes one U+FFFD. Sound text comes back as it is, NULs included.
[[nodiscard]] std::string soundUtf8(std::string_view bytes);

/// Latin-1, in which each byte is the character of its number, as UTF-8.
[[nodiscard]] std::string utf8FromLatin1(std::string_view bytes);

}  // namespace QelUtilVideo
