#pragma once

#include "platform/UserDefaults.h"

namespace QelUtilVideo {

/// Settings from the environment, then from "QelUtilVideo/defaults.json" in the user's configuration
/// folder. An environment variable that is set decides, whatever it holds. True is a number other than
/// 0, or one of the words "true", "yes" and "on" in any case. Both are read anew on every call.
class LinuxUserDefaults final : public UserDefaults {
 public:
  [[nodiscard]] bool boolForKey(const std::string& key) override;
};

}  // namespace QelUtilVideo
