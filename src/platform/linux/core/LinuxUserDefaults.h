#pragma once

#include "platform/UserDefaults.h"

#include <filesystem>
#include <optional>

namespace QelUtilVideo {

/// Settings from the environment, then from "QelUtilVideo/defaults.json" in the user's configuration
/// folder. An environment variable that is set decides, whatever it holds. True is a number other than
/// 0, or one of the words "true", "yes" and "on" in any case. Both are read anew on every call.
class LinuxUserDefaults final : public UserDefaults {
 public:
  /// Where the user's settings file is, or would be; absent when nobody can tell.
  [[nodiscard]] static std::optional<std::filesystem::path> file();

  [[nodiscard]] bool boolForKey(const std::string& key) override;
};

}  // namespace QelUtilVideo
