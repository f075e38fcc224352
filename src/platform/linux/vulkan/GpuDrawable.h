#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/Submission.h"

namespace QelUtilVideo {

/// A drawable of this layer, as the command buffer sees it.
class GpuDrawable : public CAMetalDrawable {
 public:
  [[nodiscard]] bool isPresented() const override { return isPresented_; }
  /// Adds what showing it takes to the commands.
  virtual void present(Submission& submission) = 0;
  /// The commands were sent off.
  void noteSent(Submission& submission) {
    isPresented_ = true;
    show(submission);
  }

 protected:
  virtual void show(Submission& submission) = 0;

 private:
  bool isPresented_ = false;
};

}  // namespace QelUtilVideo
