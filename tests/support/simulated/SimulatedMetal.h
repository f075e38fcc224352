#pragma once

#include "platform/DisplayLinks.h"
#include "platform/Metal.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// What a processor without a processor was asked to do, and what it has to refuse. Main thread.
struct MetalRecord {
  struct Texture final : MTLTexture {
    Texture(std::size_t columns, std::size_t rows, MTLPixelFormat pixelFormat, std::size_t planeIndex)
        : columns_(columns), rows_(rows), format_(pixelFormat), plane(planeIndex) {}
    [[nodiscard]] std::size_t width() const override { return columns_; }
    [[nodiscard]] std::size_t height() const override { return rows_; }
    [[nodiscard]] MTLPixelFormat pixelFormat() const override { return format_; }
    void replaceRegion(const MTLRegion& replaced, std::size_t, std::span<const std::byte> bytes,
                       std::size_t) override {
      region = replaced.size;
      floats.resize(bytes.size() / sizeof(float));
      std::memcpy(floats.data(), bytes.data(), floats.size() * sizeof(float));
    }

   private:
    std::size_t columns_, rows_;
    MTLPixelFormat format_;

   public:
    std::size_t plane;  ///< of the pixel buffer
    CVPixelBufferRef image;
    std::uint32_t usage = 0;    ///< of one that was asked for
    std::vector<float> floats;  ///< put into it
    MTLSize region{};           ///< where
  };
  /// One run of a kernel, or of a blur of the processor's own.
  struct Kernel {
    std::string name;
    std::vector<std::int32_t> buffer;
    std::vector<std::shared_ptr<MTLTexture>> textures;
    MTLSize grid, group;
    bool isByThreads = false;
  };
  /// One render pass.
  struct Pass {
    MTLClearColor clearColor;
    std::string pipeline;  ///< "vertex function/fragment function"; empty: only cleared
    std::vector<std::vector<float>> vertexBuffers;
    std::vector<std::shared_ptr<MTLTexture>> textures;
    std::size_t vertices = 0;
    std::shared_ptr<MTLTexture> target;
  };

  // What happened.
  std::vector<Pass> passes;
  std::vector<std::string> labels;  ///< of the command buffers that were committed
  std::vector<std::shared_ptr<MTLTexture>> presented;
  std::vector<bool> surfaces;  ///< of those made, whether each was on a window
  int asked = 0;               ///< for drawables
  int queues = 0, libraries = 0, caches = 0, buffers = 0;
  CGSize drawableSize;  ///< of the last drawable
  std::vector<Kernel> kernels;
  int computeEncoders = 0;
  std::vector<std::shared_ptr<Texture>> textures;  ///< that were asked for
  std::vector<float> sigmas;                       ///< of the processor's own blurs

  // What is refused.
  bool hasNoDrawable = false, hasNoCommandBuffer = false, hasNoEncoder = false, hasNoBuffer = false,
       hasNoQueue = false, hasNoCache = false, hasNoLibrary = false, hasNoComputeEncoder = false,
       hasNoBlurs = false, takesNoKernel = false, countsThreads = true;
  std::optional<MTLPixelFormat> missingFormat;
  CVReturn wrapping = kCVReturnSuccess;
  std::string missingFunction;
};

class SimulatedMetal final : public Metal {
 public:
  MetalRecord& record() { return *record_; }
  void setPresent(bool present) { present_ = present; }
  [[nodiscard]] std::shared_ptr<MTLDevice> MTLCreateSystemDefaultDevice() override;

 private:
  std::atomic<bool> present_{false};
  const std::shared_ptr<MetalRecord> record_ = std::make_shared<MetalRecord>();
};

/// A link whose refreshes the test makes.
class SimulatedDisplayLinks final : public DisplayLinks {
 public:
  struct State {
    int created = 0;
    int running = 0;
    CVTime period{1, 60};
    CVReturn result = kCVReturnSuccess;
    std::vector<CVDisplayLink::OutputHandler> handlers;  ///< of the links that run
  };
  [[nodiscard]] State& state() { return *state_; }
  void refresh() {
    for (const auto& handler : std::vector(state_->handlers)) handler();
  }

  [[nodiscard]] CVReturn CVDisplayLinkCreateWithActiveCGDisplays(
      std::unique_ptr<CVDisplayLink>& link) override {
    if (state_->result != kCVReturnSuccess) return state_->result;
    ++state_->created;
    link = std::make_unique<Link>(state_);
    return kCVReturnSuccess;
  }

 private:
  class Link final : public CVDisplayLink {
   public:
    explicit Link(std::shared_ptr<State> state) : state_(std::move(state)) {}
    ~Link() override { Link::CVDisplayLinkStop(); }
    void CVDisplayLinkSetOutputHandler(OutputHandler handler) override { handler_ = std::move(handler); }
    void CVDisplayLinkStart() override {
      isRunning_ = true;
      ++state_->running;
      state_->handlers.push_back(handler_);
    }
    void CVDisplayLinkStop() override {
      if (!std::exchange(isRunning_, false)) return;
      --state_->running;
      state_->handlers.clear();
    }
    [[nodiscard]] CVTime CVDisplayLinkGetNominalOutputVideoRefreshPeriod() const override {
      return state_->period;
    }

   private:
    const std::shared_ptr<State> state_;
    OutputHandler handler_;
    bool isRunning_ = false;
  };

  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace QelUtilVideo
