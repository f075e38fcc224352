#pragma once

#include <array>
#include <cstddef>
#include <stdexcept>
#include <string_view>

namespace QelUtilVideo::catalogue {

/// A text that is put together when the library is compiled.
class Text {
 public:
  constexpr Text() = default;
  constexpr Text(std::string_view text) { add(text); }  // NOLINT: a text is one

  constexpr Text& add(std::string_view text) {
    for (const char character : text) {
      // Thrown while compiling, which is an error there.
      if (size_ == characters_.size()) throw std::length_error("a longer text than expected");
      characters_[size_++] = character;
    }
    return *this;
  }
  constexpr Text& add(std::size_t number) {
    if (number >= 10) add(number / 10);
    const char digit = static_cast<char>('0' + number % 10);
    return add(std::string_view(&digit, 1));
  }
  [[nodiscard]] constexpr std::string_view view() const { return {characters_.data(), size_}; }

 private:
  std::array<char, 128> characters_{};
  std::size_t size_ = 0;
};

}  // namespace QelUtilVideo::catalogue
