#include "PrintableText.h"

namespace qelvideo {

namespace {

/// How many bytes at `position` are a control character: one of ASCII, or one of the second set in UTF-8.
std::size_t controlLength(const std::string& text, std::size_t position) {
  const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  if (byte(position) < 0x20 || byte(position) == 0x7f) return 1;
  return byte(position) == 0xc2 && byte(position + 1) >= 0x80 && byte(position + 1) < 0xa0 ? 2 : 0;
}

}  // namespace

std::string printable(const std::string& text) {
  std::string shown;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t control = controlLength(text, i);
    shown += control > 0 ? '?' : text[i];
    i += control > 0 ? control : 1;
  }
  return shown;
}

}  // namespace qelvideo
