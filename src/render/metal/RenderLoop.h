#pragma once

#include <memory>
#include <string>

namespace QelUtilVideo::metal {

class MetalRenderView_macOS;

/// A view's registration with the display link. Main thread, but for `invalidate`.
class RenderLoop : public std::enable_shared_from_this<RenderLoop> {
 public:
  explicit RenderLoop(std::string logName) : logName_(std::move(logName)) {}

  [[nodiscard]] const std::string& logName() const { return logName_; }
  /// Null once the view has gone.
  [[nodiscard]] std::shared_ptr<MetalRenderView_macOS> view() const { return view_.lock(); }
  /// Once, when the view is complete.
  void setView(std::weak_ptr<MetalRenderView_macOS> view) { view_ = std::move(view); }

  void start();
  void stop();
  /// Any thread.
  void invalidate();

 private:
  const std::string logName_;
  std::weak_ptr<MetalRenderView_macOS> view_;
};

}  // namespace QelUtilVideo::metal
