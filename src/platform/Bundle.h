#pragma once

#include <QelUtilVideo/platform/Dictionary.h>

#include <optional>
#include <string>

namespace QelUtilVideo {

/// The files that belong to the library. Any thread.
class Bundle {
 public:
  virtual ~Bundle() = default;
  /// The information dictionary, read anew; absent when there is none or it cannot be read.
  [[nodiscard]] virtual std::optional<Dictionary> infoDictionary() = 0;
  /// Where the resource file lies; absent when it does not exist.
  [[nodiscard]] virtual std::optional<std::string> pathForResource(const std::string& name) = 0;
};

}  // namespace QelUtilVideo
