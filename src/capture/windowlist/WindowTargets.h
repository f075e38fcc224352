#pragma once

#include <memory>
#include <vector>

namespace QelUtilVideo {

class Root;

namespace windowlist {

class Window;

/// The capturable windows as targets. A window keeps its target as long as it stays listed. Not synchronised.
class WindowTargets {
 public:
  using List = std::vector<std::shared_ptr<Window>>;

  [[nodiscard]] const List& list() const { return list_; }
  /// Takes over the window server's windows, front to back, as far as they can be captured. Asks for the
  /// image of each that may be one, but not for its pixels.
  void update(Root& root);

 private:
  List list_;
};

}  // namespace windowlist
}  // namespace QelUtilVideo
