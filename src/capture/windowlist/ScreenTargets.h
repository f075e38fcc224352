#pragma once

#include <QelUtilVideo/platform/Dictionary.h>

#include <memory>
#include <vector>

namespace QelUtilVideo {

class Platform;

namespace windowlist {

class Screen;

/// The displays as targets. A display keeps its target as long as it stays connected. Not synchronised.
class ScreenTargets {
 public:
  using List = std::vector<std::shared_ptr<Screen>>;

  [[nodiscard]] const List& list() const { return list_; }
  /// Takes over the platform's screens, in its order; logs and answers what came and went, as notifications
  /// carry it.
  Dictionary update(Platform& platform);

 private:
  List list_;
};

}  // namespace windowlist
}  // namespace QelUtilVideo
