#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// The types of property that mean something here, whatever atom they have on a server.
enum class PropertyType : std::uint8_t { other, string, utf8String, cardinal, atom, window };

/// What a property holds. Any client may have written anything, of any type and length; whatever does not
/// fit the question is an ordinary "nothing". It looks into memory that its maker keeps.
///
///     const auto name = PropertyValue::ofReply(type, reply->format, reply->value_len, reply->length,
///                                              xcb_get_property_value(reply.get())).text();
class PropertyValue {
 public:
  /// Bytes that are looked at; what lies behind them is left out.
  static constexpr std::size_t longest = std::size_t{1} << 20;

  /// `format`: bits of an item, 8, 16 or 32; anything else (0: there is no such property) is a value
  /// without bytes.
  PropertyValue(PropertyType type, std::uint8_t format, std::span<const std::uint8_t> bytes);
  /// The value in a reply that counts `items` of them, followed by `words` of 32 bits in all, at `data`.
  /// The two may contradict each other; no more is looked at than either allows.
  [[nodiscard]] static PropertyValue ofReply(PropertyType type, std::uint8_t format, std::uint32_t items,
                                             std::uint32_t words, const void* data);

  /// A text's characters before the first NUL, as sound UTF-8; absent where the value is no text.
  [[nodiscard]] std::optional<std::string> text() const;
  /// The texts that NULs separate, as sound UTF-8; a NUL at the end begins no further one. Empty where the
  /// value is no text.
  [[nodiscard]] std::vector<std::string> texts() const;
  /// The whole items of 32 bits; empty where the type is not `wanted`, or the format another one.
  [[nodiscard]] std::vector<std::uint32_t> items(PropertyType wanted) const;
  /// The items of 8 bits, of whatever type; empty where the format is another one.
  [[nodiscard]] std::span<const std::uint8_t> octets() const;

 private:
  [[nodiscard]] bool isText() const;

  PropertyType type_;
  std::uint8_t format_;
  std::span<const std::uint8_t> bytes_;
};

}  // namespace QelUtilVideo
