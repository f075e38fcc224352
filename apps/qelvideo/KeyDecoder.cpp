#include "KeyDecoder.h"

#include <utility>

namespace qelvideo {

namespace {

constexpr unsigned char escape = 0x1b;

/// The key whose sequence ends like this.
std::string namedKey(unsigned char last) {
  switch (last) {
    case 'A':
      return "Up";
    case 'B':
      return "Down";
    case 'C':
      return "Right";
    case 'D':
      return "Left";
    case 'H':
      return "Home";
    case 'F':
      return "End";
    default:
      return {};
  }
}

std::string controlKey(unsigned char byte) {
  switch (byte) {
    case '\n':
    case '\r':
      return "Return";
    case '\t':
      return "Tab";
    case '\b':
    case 0x7f:
      return "BackSpace";
    default:
      return {};
  }
}

/// How many bytes follow the first one of a character; 0 for what begins none.
std::size_t followers(unsigned char byte) {
  if (byte >= 0xc2 && byte < 0xe0) return 1;
  if (byte >= 0xe0 && byte < 0xf0) return 2;
  return byte >= 0xf0 && byte < 0xf5 ? 3 : 0;
}

}  // namespace

std::vector<std::string> KeyDecoder::decode(std::string_view bytes) {
  std::vector<std::string> keys;
  for (const char byte : bytes) {
    std::string key = take(static_cast<unsigned char>(byte));
    if (!key.empty()) keys.push_back(std::move(key));
  }
  return keys;
}

std::string KeyDecoder::giveUp() {
  return std::exchange(state_, State::ground) == State::escape ? "Escape" : "";
}

std::string KeyDecoder::take(unsigned char byte) {
  switch (state_) {
    case State::ground:
      break;
    case State::escape:
      return afterEscape(byte);
    case State::sequence:
      // Parameters come before the last byte.
      if (byte < 0x40 && byte >= 0x20) return {};
      state_ = State::ground;
      return namedKey(byte);
    case State::singleShift:
      state_ = State::ground;
      return namedKey(byte);
    case State::character:
      return insideCharacter(byte);
  }
  return atGround(byte);
}

std::string KeyDecoder::atGround(unsigned char byte) {
  if (byte == escape) {
    if (source_ == Source::pipe) return "Escape";
    state_ = State::escape;
    return {};
  }
  if (byte < 0x20 || byte == 0x7f) return controlKey(byte);
  if (byte < 0x80) return {static_cast<char>(byte)};
  missing_ = followers(byte);
  if (missing_ == 0) return {};
  state_ = State::character;
  character_ = static_cast<char>(byte);
  return {};
}

std::string KeyDecoder::afterEscape(unsigned char byte) {
  // Two in a row: the first one was a key.
  if (byte == escape) return "Escape";
  state_ = byte == '[' ? State::sequence : byte == 'O' ? State::singleShift : State::ground;
  return {};
}

std::string KeyDecoder::insideCharacter(unsigned char byte) {
  if ((byte & 0xc0) != 0x80) {
    state_ = State::ground;
    return atGround(byte);
  }
  character_ += static_cast<char>(byte);
  if (--missing_ > 0) return {};
  state_ = State::ground;
  return std::exchange(character_, {});
}

}  // namespace qelvideo
