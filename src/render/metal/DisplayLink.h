#pragma once

#include "platform/DisplayLinks.h"
#include "platform/Synchronised.h"

#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {
class DispatchDataAddSource;
class Root;
}  // namespace QelUtilVideo

namespace QelUtilVideo::metal {

class RenderLoop;

/// Turns the refreshes of the displays into ticks on the main queue, on which each registered loop's view is
/// redrawn if it has a reason to be. One per process serves all views; the platform's link runs while a loop
/// is registered. Loops are registered and drawn on the main thread; they may be removed on any.
class DisplayLink {
 public:
  explicit DisplayLink(Root& root);
  DisplayLink(const DisplayLink&) = delete;
  DisplayLink& operator=(const DisplayLink&) = delete;
  ~DisplayLink();

  /// The root's one.
  static DisplayLink& shared();

  /// One that is registered already stays where it is. Ends the process when there is no display link to be
  /// had.
  void addRenderLoop(const std::shared_ptr<RenderLoop>& loop);
  /// One that is not registered is no matter.
  void removeRenderLoop(const RenderLoop& loop);

 private:
  struct State {
    std::unique_ptr<CVDisplayLink> displayLink;  ///< there while it runs
    std::vector<std::shared_ptr<RenderLoop>> renderLoops;
  };

  [[nodiscard]] std::unique_ptr<CVDisplayLink> startDisplayLink();
  void tick();

  Root& root_;
  const std::shared_ptr<DispatchDataAddSource> dispatchSource_;
  Synchronised<State> state_;
};

}  // namespace QelUtilVideo::metal
