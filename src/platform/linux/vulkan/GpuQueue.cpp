#include "platform/linux/vulkan/GpuQueue.h"

#include "platform/linux/vulkan/ComputeEncoder.h"
#include "platform/linux/vulkan/GpuDrawable.h"
#include "platform/linux/vulkan/RenderEncoder.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

namespace QelUtilVideo {

namespace {

/// Frames that the processor works at, and the one that is recorded meanwhile.
constexpr std::size_t kMostSubmissions = 3;

class CommandBuffer final : public MTLCommandBuffer {
 public:
  CommandBuffer(std::shared_ptr<Submission> submission, std::shared_ptr<MTLDevice> device)
      : submission_(std::move(submission)), device_(std::move(device)) {}
  CommandBuffer(const CommandBuffer&) = delete;
  CommandBuffer& operator=(const CommandBuffer&) = delete;
  ~CommandBuffer() override {
    if (!isCommitted_) submission_->abandon();
  }

  [[nodiscard]] const std::string& label() const override { return label_; }
  void setLabel(const std::string& label) override { label_ = label; }
  std::unique_ptr<MTLRenderCommandEncoder> renderCommandEncoder(
      const MTLRenderPassDescriptor& descriptor) override {
    return std::make_unique<RenderEncoder>(submission_, descriptor);
  }
  std::unique_ptr<MTLComputeCommandEncoder> computeCommandEncoder() override {
    return std::make_unique<ComputeEncoder>(submission_, *device_);
  }
  void presentDrawable(std::shared_ptr<CAMetalDrawable> drawable) override {
    presented_ = std::dynamic_pointer_cast<GpuDrawable>(drawable);
  }
  void commit() override {
    if (std::exchange(isCommitted_, true)) return;
    if (presented_) {
      presented_->present(*submission_);
      submission_->keep(presented_);
    }
    if (submission_->send() && presented_) presented_->noteSent(*submission_);
  }

 private:
  const std::shared_ptr<Submission> submission_;
  const std::shared_ptr<MTLDevice> device_;
  std::string label_;
  std::shared_ptr<GpuDrawable> presented_;
  bool isCommitted_ = false;
};

}  // namespace

std::shared_ptr<MTLCommandBuffer> GpuQueue::commandBuffer() {
  const auto gpu = gpu_->opened();
  // Whatever lets pictures go may bring a host back here.
  if (!submissions_.empty() && submissions_.front()->gpu() != gpu) std::exchange(submissions_, {});
  if (gpu->isLost()) return nullptr;
  std::shared_ptr<Submission> submission;
  for (std::size_t i = 0; i < submissions_.size(); ++i) {
    // One that somebody still holds is being recorded. The others are all asked: one that is done lets
    // pictures go.
    if (submissions_[i].use_count() == 1 && submissions_[i]->isFree()) submission = submissions_[i];
  }
  if (!submission && submissions_.size() < kMostSubmissions) {
    submission = Submission::make(gpu);
    if (submission) submissions_.push_back(submission);
  }
  if (!submission || !submission->begin()) return nullptr;
  return std::make_shared<CommandBuffer>(std::move(submission), device_);
}

}  // namespace QelUtilVideo
