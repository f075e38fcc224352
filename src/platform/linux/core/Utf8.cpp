#include "platform/linux/core/Utf8.h"

#include <cstddef>
#include <cstdint>

namespace QelUtilVideo {

namespace {

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

/// What a character's first byte says: how many bytes follow, and between which two the first of them
/// lies. That one excludes what could be written shorter, surrogates, and what lies beyond U+10FFFF.
struct Lead {
  bool isSound = true;
  std::size_t followers = 0;
  std::uint8_t lowest = 0x80;
  std::uint8_t highest = 0xBF;
};

Lead leadOf(std::uint8_t byte) {
  constexpr std::uint8_t least = 0x80;
  constexpr std::uint8_t most = 0xBF;
  if (byte < 0x80) return {};
  if (byte >= 0xC2 && byte < 0xE0) return {true, 1, least, most};
  if (byte >= 0xE0 && byte < 0xF0) {
    return {true, 2, byte == 0xE0 ? std::uint8_t{0xA0} : least, byte == 0xED ? std::uint8_t{0x9F} : most};
  }
  if (byte >= 0xF0 && byte < 0xF5) {
    return {true, 3, byte == 0xF0 ? std::uint8_t{0x90} : least, byte == 0xF4 ? std::uint8_t{0x8F} : most};
  }
  return {false};
}

/// The bytes that the text's first character takes, or what stands in its place.
struct Character {
  bool isSound;
  std::size_t length;
};

Character firstOf(std::string_view text) {
  Lead lead = leadOf(static_cast<std::uint8_t>(text[0]));
  if (!lead.isSound) return {false, 1};
  std::size_t length = 1;
  for (; length <= lead.followers && length < text.size(); ++length) {
    const auto byte = static_cast<std::uint8_t>(text[length]);
    if (byte < lead.lowest || byte > lead.highest) break;
    lead.lowest = 0x80;
    lead.highest = 0xBF;
  }
  return {length == lead.followers + 1, length};
}

}  // namespace

std::string soundUtf8(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Character character = firstOf(bytes);
    text += character.isSound ? bytes.substr(0, character.length) : replacementCharacter;
    bytes.remove_prefix(character.length);
  }
  return text;
}

std::string utf8FromLatin1(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (const char character : bytes) {
    const auto code = static_cast<std::uint8_t>(character);
    if (code < 0x80) {
      text += character;
    } else {
      text += static_cast<char>(0xC0 | code >> 6);
      text += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return text;
}

}  // namespace QelUtilVideo
