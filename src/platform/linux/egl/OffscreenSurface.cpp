#include "platform/linux/egl/OffscreenSurface.h"

#include "platform/Images.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

namespace QelUtilVideo {

namespace {

GLuint boundTo(GLenum binding) {
  GLint name = 0;
  glGetIntegerv(binding, &name);
  return static_cast<GLuint>(name);
}

/// Binds a framebuffer while it lives.
class FramebufferBinding {
 public:
  FramebufferBinding(GLenum target, GLenum binding, GLuint framebuffer)
      : target_(target), before_(boundTo(binding)) {
    glBindFramebuffer(target_, framebuffer);
  }
  FramebufferBinding(const FramebufferBinding&) = delete;
  FramebufferBinding& operator=(const FramebufferBinding&) = delete;
  ~FramebufferBinding() { glBindFramebuffer(target_, before_); }

 private:
  GLenum target_;
  GLuint before_;
};

/// Lets clears and blits of the first colour buffer reach every pixel and component as they are while it
/// lives.
class PlainPainting {
 public:
  PlainPainting() {
    glGetBooleani_v(GL_COLOR_WRITEMASK, 0, mask_.data());
    glColorMaski(0, GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    for (std::size_t index = 0; index < effects.size(); ++index) {
      enabled_[index] = glIsEnabled(effects[index]) == GL_TRUE;
      if (enabled_[index]) glDisable(effects[index]);
    }
  }
  PlainPainting(const PlainPainting&) = delete;
  PlainPainting& operator=(const PlainPainting&) = delete;
  ~PlainPainting() {
    for (std::size_t index = 0; index < effects.size(); ++index) {
      if (enabled_[index]) glEnable(effects[index]);
    }
    glColorMaski(0, mask_[0], mask_[1], mask_[2], mask_[3]);
  }

 private:
  static constexpr std::array<GLenum, 3> effects{GL_SCISSOR_TEST, GL_FRAMEBUFFER_SRGB, GL_RASTERIZER_DISCARD};
  std::array<GLboolean, 4> mask_{};
  std::array<bool, effects.size()> enabled_{};
};

/// Makes `glReadPixels` write packed rows into memory while it lives.
class PlainPacking {
 public:
  PlainPacking() : buffer_(boundTo(GL_PIXEL_PACK_BUFFER_BINDING)) {
    if (buffer_ != 0) glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    for (std::size_t index = 0; index < names.size(); ++index) {
      glGetIntegerv(names[index], &values_[index]);
      glPixelStorei(names[index], names[index] == GL_PACK_ALIGNMENT ? 4 : 0);
    }
  }
  PlainPacking(const PlainPacking&) = delete;
  PlainPacking& operator=(const PlainPacking&) = delete;
  ~PlainPacking() {
    for (std::size_t index = 0; index < names.size(); ++index) glPixelStorei(names[index], values_[index]);
    if (buffer_ != 0) glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer_);
  }

 private:
  static constexpr std::array<GLenum, 6> names{GL_PACK_ALIGNMENT,   GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS,
                                               GL_PACK_SKIP_PIXELS, GL_PACK_SWAP_BYTES, GL_PACK_LSB_FIRST};
  GLuint buffer_;
  std::array<GLint, names.size()> values_{};
};

/// OpenGL counts rows from the bottom, pictures from the top.
void flipRows(std::byte* pixels, std::size_t bytesPerRow, std::size_t rows) {
  for (std::size_t row = 0; row < rows / 2; ++row) {
    std::byte* upper = pixels + row * bytesPerRow;
    std::swap_ranges(upper, upper + bytesPerRow, pixels + (rows - 1 - row) * bytesPerRow);
  }
}

}  // namespace

void OffscreenSurface::bind(PixelSize size) {
  if (drawFramebuffer_ == 0) create();
  const PixelSize possible{std::clamp(size.width, 1, largestSide_), std::clamp(size.height, 1, largestSide_)};
  if (back_.size != possible) resize(back_, possible);
  glBindFramebuffer(GL_FRAMEBUFFER, drawFramebuffer_);
}

void OffscreenSurface::create() {
  glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &largestSide_);
  std::array<GLuint, 2> framebuffers{};
  glGenFramebuffers(2, framebuffers.data());
  drawFramebuffer_ = framebuffers[0];
  readFramebuffer_ = framebuffers[1];
  for (Buffer* buffer : {&back_, &front_}) {
    glGenRenderbuffers(1, &buffer->renderbuffer);
    resize(*buffer, {1, 1});
  }
  glBindFramebuffer(GL_FRAMEBUFFER, drawFramebuffer_);
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, back_.renderbuffer);
}

void OffscreenSurface::resize(Buffer& buffer, PixelSize size) {
  const GLuint before = boundTo(GL_RENDERBUFFER_BINDING);
  glBindRenderbuffer(GL_RENDERBUFFER, buffer.renderbuffer);
  glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, size.width, size.height);
  buffer.size = size;
  if (glGetError() == GL_OUT_OF_MEMORY) {
    // The smallest buffer keeps the framebuffer complete, and the next frame tries again.
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, 1, 1);
    buffer.size = {1, 1};
    if (!std::exchange(reported_, true) && trouble_) {
      trouble_("No memory for a drawing surface of " + std::to_string(size.width) + " x " +
               std::to_string(size.height) + " pixels");
    }
  }
  glBindRenderbuffer(GL_RENDERBUFFER, before);
}

void OffscreenSurface::present() {
  if (drawFramebuffer_ == 0) return;
  std::swap(back_, front_);
  presented_ = true;
  const FramebufferBinding binding(GL_DRAW_FRAMEBUFFER, GL_DRAW_FRAMEBUFFER_BINDING, drawFramebuffer_);
  glFramebufferRenderbuffer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, back_.renderbuffer);
  glFlush();
}

void OffscreenSurface::paintPresented(PixelSize size) const {
  const FramebufferBinding drawing(GL_DRAW_FRAMEBUFFER, GL_DRAW_FRAMEBUFFER_BINDING, 0);
  if (glCheckFramebufferStatus(GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) return;
  // A context that was first current without a window draws in no buffer of one by default.
  glDrawBuffer(GL_BACK);
  const PlainPainting plain;
  if (!presented_) {
    constexpr std::array<GLfloat, 4> black{0, 0, 0, 1};
    glClearBufferfv(GL_COLOR, 0, black.data());
    return;
  }
  const FramebufferBinding reading(GL_READ_FRAMEBUFFER, GL_READ_FRAMEBUFFER_BINDING, readFramebuffer_);
  glFramebufferRenderbuffer(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, front_.renderbuffer);
  const GLenum filter = size == front_.size ? GL_NEAREST : GL_LINEAR;
  glBlitFramebuffer(0, 0, front_.size.width, front_.size.height, 0, 0, size.width, size.height,
                    GL_COLOR_BUFFER_BIT, filter);
}

CGImageRef OffscreenSurface::copyPresented() const {
  if (!presented_) return nullptr;
  CGImageLayout layout;
  layout.width = static_cast<std::size_t>(front_.size.width);
  layout.height = static_cast<std::size_t>(front_.size.height);
  layout.bytesPerRow = layout.width * 4;
  layout.bitmapInfo = static_cast<std::uint32_t>(CGImageAlphaInfo::first) | kCGBitmapByteOrder32Little;
  auto bytes = makeHeapBytes(layout.bytesPerRow * layout.height);
  if (!bytes) return nullptr;

  const FramebufferBinding binding(GL_READ_FRAMEBUFFER, GL_READ_FRAMEBUFFER_BINDING, readFramebuffer_);
  glFramebufferRenderbuffer(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, front_.renderbuffer);
  const PlainPacking packing;
  glReadPixels(0, 0, front_.size.width, front_.size.height, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV,
               bytes->data());
  flipRows(bytes->data(), layout.bytesPerRow, layout.height);
  return std::make_shared<CGImage>(layout, std::move(bytes));
}

}  // namespace QelUtilVideo
