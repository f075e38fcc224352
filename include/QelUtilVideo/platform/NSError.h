#pragma once

#include <cstdint>
#include <string>

namespace QelUtilVideo {

/// An error as a value: who reports it (`domain`), which one it is (`code`, counted from 0 within the
/// domain) and a text for people. Domains of the library itself are "QelUtilVideo." followed by the
/// name of the area and of its enumeration, and their text is the name of the enumeration's case.
struct NSError {
  std::string domain;
  std::int64_t code = 0;
  std::string localizedDescription;

  /// The text that log lines carry.
  [[nodiscard]] const std::string& description() const { return localizedDescription; }

  friend bool operator==(const NSError&, const NSError&) = default;
};

}  // namespace QelUtilVideo
