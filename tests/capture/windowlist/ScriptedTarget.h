#pragma once

#include "capture/windowlist/Error.h"
#include "capture/windowlist/Target.h"

#include <functional>
#include <memory>
#include <utility>

namespace QelUtilVideo::windowlist {

/// A target whose answers the test gives.
class ScriptedTarget final : public Target {
 public:
  ScriptedTarget(Platform& platform, std::function<void()> destroyed)
      : Target(platform, "[T]"), destroyed_(std::move(destroyed)) {}
  ~ScriptedTarget() override {
    tearDownSession();
    if (destroyed_) destroyed_();
  }

  /// Called for each capture; answers a frame unless told otherwise.
  std::function<Result<CVPixelBufferRef>()> answer = [] { return frame(); };

  static Result<CVPixelBufferRef> frame() {
    CVPixelBufferRef buffer;
    static_cast<void>(CVPixelBufferCreate(2, 2, kCVPixelFormatType_32BGRA, buffer));
    return buffer;
  }
  static Result<CVPixelBufferRef> nothing() { return CVPixelBufferRef(); }
  static Result<CVPixelBufferRef> failure() { return makeError(Error::failedToCapture); }

  std::string uniqueID() const override { return "scripted"; }
  std::string name() const override { return "Scripted"; }
  bool isAvailable() const override { return true; }
  bool isCamera() const override { return false; }
  bool isScreen() const override { return true; }
  bool isWindow() const override { return false; }
  Result<CVPixelBufferRef> capture() override { return answer(); }

 private:
  std::function<void()> destroyed_;
};

}  // namespace QelUtilVideo::windowlist
