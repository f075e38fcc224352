// A property of a window or an output: two bytes choose type and format, the rest is the value.

#include "fuzz/Require.h"
#include "platform/linux/core/Utf8.h"
#include "platform/linux/x11/PropertyValue.h"

#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

namespace {

using qelfuzz::require;
using QelUtilVideo::PropertyType;
using QelUtilVideo::PropertyValue;

/// Decodes characters as arithmetic, where the library goes by ranges of bytes.
bool isSoundUtf8(std::string_view text) {
  while (!text.empty()) {
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t length = first < 0x80 ? 1 : first >> 5 == 6 ? 2 : first >> 4 == 14 ? 3 : 4;
    if (first >= 0x80 && first < 0xC0) return false;
    if (first >= 0xF8 || text.size() < length) return false;
    char32_t code = length == 1 ? first : first & (0x7F >> length);
    for (const char byte : text.substr(1, length - 1)) {
      if ((byte & 0xC0) != 0x80) return false;
      code = code << 6 | (byte & 0x3F);
    }
    constexpr char32_t least[]{0, 0, 0x80, 0x800, 0x10000};
    if (code < least[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    text.remove_prefix(length);
  }
  return true;
}

void checkText(const std::string& text, std::size_t bytes) {
  require(isSoundUtf8(text), "text is sound UTF-8");
  require(text.find('\0') == std::string::npos, "text holds no NUL");
  require(text.size() <= 3 * bytes, "a byte becomes one character at most");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  constexpr PropertyType types[]{PropertyType::other,    PropertyType::string, PropertyType::utf8String,
                                 PropertyType::cardinal, PropertyType::atom,   PropertyType::window};
  const PropertyType type = types[data[0] % std::size(types)];
  const std::uint8_t format = data[1];
  data += 2;
  size -= 2;
  const PropertyValue value(type, format, {data, size});

  const auto text = value.text();
  const auto texts = value.texts();
  const bool isText = format == 8 && (type == PropertyType::string || type == PropertyType::utf8String);
  require(text.has_value() == isText, "text is text of 8 bits");
  require(isText || texts.empty(), "what is no text has no texts");
  if (text) checkText(*text, size);
  std::size_t total = 0;
  for (const std::string& each : texts) {
    checkText(each, size);
    total += each.size();
  }
  require(total <= 3 * size, "texts come from bytes of their own");
  require(texts.empty() || texts.front() == text, "the first text is the text");

  for (const PropertyType wanted : types) {
    const std::size_t whole = format == 32 && type == wanted ? size / 4 : 0;
    require(value.items(wanted).size() == whole, "the whole items are there");
  }
  require(value.octets().size() == (format == 8 ? size : 0), "the octets are there");

  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::string sound = QelUtilVideo::soundUtf8(bytes);
  require(isSoundUtf8(sound), "what comes out is sound");
  require(!isSoundUtf8(bytes) || sound == bytes, "sound text stays as it is");
  return 0;
}
