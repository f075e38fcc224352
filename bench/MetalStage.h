#pragma once

#include "WrappedPlatform.h"
#include "platform/Bundle.h"
#include "platform/DisplayLinks.h"
#include "platform/linux/vulkan/VulkanMetal.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// Display links whose refreshes the benchmark makes.
class HandDrivenDisplayLinks final : public DisplayLinks {
 public:
  [[nodiscard]] CVReturn CVDisplayLinkCreateWithActiveCGDisplays(
      std::unique_ptr<CVDisplayLink>& link) override {
    struct Link final : CVDisplayLink {
      explicit Link(HandDrivenDisplayLinks& all) : owner(all) {}
      ~Link() override { owner.handler_ = nullptr; }
      void CVDisplayLinkSetOutputHandler(OutputHandler handler) override {
        owner.handler_ = std::move(handler);
      }
      void CVDisplayLinkStart() override {}
      void CVDisplayLinkStop() override { owner.handler_ = nullptr; }
      [[nodiscard]] CVTime CVDisplayLinkGetNominalOutputVideoRefreshPeriod() const override {
        return {1, 60};
      }
      HandDrivenDisplayLinks& owner;
    };
    created += 1;
    link = std::make_unique<Link>(*this);
    return kCVReturnSuccess;
  }
  /// Calls the handler of the link that was made last.
  void refresh() {
    if (handler_) handler_();
  }

  std::int64_t created = 0;

 private:
  CVDisplayLink::OutputHandler handler_;
};

/// The real machine, drawing through Vulkan, refreshed by hand.
class VulkanMachine final : public WrappedPlatform {
 public:
  Metal& metal() override { return metal_; }
  HandDrivenDisplayLinks& displayLinks() override { return links_; }

 private:
  VulkanMetal metal_{[this] { return bundle().pathForResource("shaders.lib"); }, nullptr};
  HandDrivenDisplayLinks links_;
};

struct FrameSize {
  std::size_t width = 0, height = 0;
};

/// Whose memory the frames lie in.
enum class FrameMemory : std::uint8_t {
  library,  ///< allocated by the library
  host      ///< the host's own, which starts anywhere
};

/// A frame with a picture in it; null when there is no memory.
inline CVPixelBufferRef makeFrame(FrameSize size, FrameMemory memory) {
  constexpr OSType format = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
  CVPixelBufferRef frame;
  if (memory == FrameMemory::library) {
    static_cast<void>(CVPixelBufferCreate(size.width, size.height, format, frame));
  } else {
    constexpr std::size_t somewhere = 64;
    const std::size_t luma = size.width * size.height;
    auto bytes = std::make_shared<std::vector<std::byte>>(somewhere + luma + luma / 2);
    std::byte* const start = bytes->data() + somewhere;
    static_cast<void>(CVPixelBufferCreateWithPlanarBytes(
        size.width, size.height, format,
        {{start, size.width, size.height, size.width},
         {start + luma, size.width / 2, size.height / 2, size.width}},
        [bytes] {}, frame));
  }
  for (std::size_t plane = 0; frame && plane < 2; ++plane) {
    const PixelPlane& rows = frame->planes()[plane];
    for (std::size_t i = 0; i < rows.bytesPerRow * rows.height; ++i)
      rows.baseAddress[i] = static_cast<std::byte>(16 + i % 220);
  }
  return frame;
}

/// Views in an off-screen window, which show the same source at the size of its frames.
class MetalStage {
 public:
  MetalStage(FrameSize size, FrameMemory memory, std::size_t views = 1)
      : frames_{makeFrame(size, memory), makeFrame(size, memory), makeFrame(size, memory)},
        window_(
            NSWindow::makeOffscreen({static_cast<double>(size.width), static_cast<double>(size.height)})) {
    for (std::size_t i = 0; i < views; ++i) {
      views_.push_back(RenderView::make(window_->contentView()->bounds()));
      window_->contentView()->addSubview(views_.back());
      views_.back()->setImageBuffer(buffer_);
    }
    showNewFrame();
    // The first refreshes prepare; the benchmark begins with the views at rest.
    for (int i = 0; i < 10; ++i) refresh();
  }

  [[nodiscard]] HandDrivenDisplayLinks& displayLinks() { return machine_->displayLinks(); }
  [[nodiscard]] const CVPixelBufferRef& frame() const { return frames_[count_ % frames_.size()]; }

  /// Writes a frame, as a camera would that has three of them, and shows it.
  void showNewFrame() {
    count_ += 1;
    static_cast<void>(CVPixelBufferLockBaseAddress(*frame()));
    *frame()->planes()[0].baseAddress = static_cast<std::byte>(count_);
    CVPixelBufferUnlockBaseAddress(*frame());
    buffer_->setImage(frame(), static_cast<double>(count_));
  }
  /// As views have it, from the next change on.
  void setBlurRadius(float radius) {
    blurRadius_ = radius;
    changeSetting();
  }
  /// Has every view drawn again at the next refresh, with the frame that it shows.
  void changeSetting() {
    for (const auto& view : views_) view->setBlurRadius(blurRadius_);
  }
  /// One refresh of the display, and all that the main thread has to do then.
  void refresh() {
    machine_->displayLinks().refresh();
    MainLoop::main().dispatchPending();
  }

 private:
  ScopedMachine<VulkanMachine> machine_;
  std::array<CVPixelBufferRef, 3> frames_;
  std::shared_ptr<NSWindow> window_;
  std::vector<std::shared_ptr<RenderView>> views_;
  std::shared_ptr<QelKit::QelVideoImageBuffer> buffer_ = std::make_shared<QelKit::QelVideoImageBuffer>();
  std::size_t count_ = 0;
  float blurRadius_ = 0;
};

}  // namespace QelUtilVideo
