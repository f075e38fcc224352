#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qelvideo {

/// Makes keys of the bytes that come in: a key is the character that it types, in UTF-8, or its name where
/// it types none: "Escape", "Return", "Tab", "BackSpace", "Up", "Down", "Left", "Right", "Home", "End".
/// Other keys, broken characters and the codes that go with Alt give nothing.
class KeyDecoder {
 public:
  /// A terminal sends named keys as an escape and further bytes; elsewhere an escape stands for itself.
  enum class Source { terminal, pipe };

  explicit KeyDecoder(Source source) : source_(source) {}

  [[nodiscard]] std::vector<std::string> decode(std::string_view bytes);
  /// Whether the bytes end in what may be a key of its own or the beginning of another one.
  [[nodiscard]] bool isWaiting() const { return state_ != State::ground; }
  /// Nothing more came: the key that the waiting was about, or an empty text.
  [[nodiscard]] std::string giveUp();

 private:
  enum class State { ground, escape, sequence, singleShift, character };

  [[nodiscard]] std::string take(unsigned char byte);
  [[nodiscard]] std::string atGround(unsigned char byte);
  [[nodiscard]] std::string afterEscape(unsigned char byte);
  [[nodiscard]] std::string insideCharacter(unsigned char byte);

  Source source_;
  State state_ = State::ground;
  std::string character_;  ///< its bytes so far
  std::size_t missing_ = 0;
};

}  // namespace qelvideo
