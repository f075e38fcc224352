#include "platform/linux/x11/PropertyValue.h"

#include "platform/linux/core/Utf8.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace QelUtilVideo {

namespace {

std::string decoded(PropertyType type, std::string_view characters) {
  return type == PropertyType::string ? utf8FromLatin1(characters) : soundUtf8(characters);
}

std::string_view characters(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

PropertyValue::PropertyValue(PropertyType type, std::uint8_t format, std::span<const std::uint8_t> bytes)
    : type_(type), format_(format) {
  if (format == 8 || format == 16 || format == 32) bytes_ = bytes.first(std::min(bytes.size(), longest));
}

PropertyValue PropertyValue::ofReply(PropertyType type, std::uint8_t format, std::uint32_t items,
                                     std::uint32_t words, const void* data) {
  const std::size_t counted = std::size_t{items} * (format / 8);
  const std::size_t sent = std::size_t{words} * 4;
  return {type, format, {static_cast<const std::uint8_t*>(data), std::min(counted, sent)}};
}

std::optional<std::string> PropertyValue::text() const {
  if (!isText()) return std::nullopt;
  const std::string_view all = characters(bytes_);
  return decoded(type_, all.substr(0, all.find('\0')));
}

std::vector<std::string> PropertyValue::texts() const {
  std::vector<std::string> texts;
  if (!isText()) return texts;
  std::string_view rest = characters(bytes_);
  while (!rest.empty()) {
    const std::string_view next = rest.substr(0, rest.find('\0'));
    texts.push_back(decoded(type_, next));
    rest.remove_prefix(std::min(next.size() + 1, rest.size()));
  }
  return texts;
}

std::vector<std::uint32_t> PropertyValue::items(PropertyType wanted) const {
  if (type_ != wanted || format_ != 32) return {};
  std::vector<std::uint32_t> items(bytes_.size() / sizeof(std::uint32_t));
  if (!items.empty()) std::memcpy(items.data(), bytes_.data(), items.size() * sizeof(std::uint32_t));
  return items;
}

std::span<const std::uint8_t> PropertyValue::octets() const {
  if (format_ != 8) return {};
  return bytes_;
}

bool PropertyValue::isText() const {
  return format_ == 8 && (type_ == PropertyType::string || type_ == PropertyType::utf8String);
}

}  // namespace QelUtilVideo
