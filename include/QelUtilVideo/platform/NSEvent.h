#pragma once

#include <cstdint>
#include <string>

namespace QelUtilVideo {

/// Keys that were held while another one was pressed; any combination of them.
enum NSEventModifierFlags : std::uint32_t {
  NSEventModifierFlagNone = 0,
  NSEventModifierFlagShift = 1,
  NSEventModifierFlagControl = 2,
  NSEventModifierFlagOption = 4,   ///< Alt
  NSEventModifierFlagCommand = 8,  ///< Super
};

/// One key press, as the keyboard's layout has it. A value.
struct NSEvent {
  std::string characters;           ///< the text that the key types, UTF-8; may be empty or a control code
  std::string keyName;              ///< the key by X's name, e.g. "q", "Escape", "Left", "KP_Add"
  std::uint32_t modifierFlags = 0;  ///< of `NSEventModifierFlags`
  bool isARepeat = false;           ///< the key was held down
};

}  // namespace QelUtilVideo
