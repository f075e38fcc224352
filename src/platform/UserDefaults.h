#pragma once

#include <string>

namespace QelUtilVideo {

/// Settings of the person who uses the machine. Any thread.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  /// The setting as a truth value; false when it is absent or unreadable.
  [[nodiscard]] virtual bool boolForKey(const std::string& key) = 0;
};

}  // namespace QelUtilVideo
