#include "render/opengl/Blur.h"

#include "log/Log.h"
#include "render/opengl/BlurKernel.h"
#include "render/opengl/BlurShaders.h"
#include "render/opengl/TextureUnit.h"

#include <string>
#include <utility>

namespace QelUtilVideo::opengl {

namespace {

/// The units below belong to the planes of the frame.
constexpr GLuint textureUnit(std::size_t picture) { return 2 + static_cast<GLuint>(picture); }

}  // namespace

Blur::Blur(GL gl) : gl_(std::move(gl)), vertBlur_(gl_), horzBlur_(gl_) {}

void Blur::prepare() {
  size_ = {};
  radius_ = 0;
  gl_.checked()->glGenTextures(2, texture_.data());
  gl_.checked()->glGenFramebuffers(2, framebuffer_.data());
  for (std::size_t picture = 0; picture < 2; ++picture) {
    bindClampedToUnit(gl_, textureUnit(picture), texture_[picture]);
  }
  vertBlur_.prepare();
  horzBlur_.prepare(&vertBlur_);
}

Blur::State Blur::update(float radius, Size image) {
  const std::uint32_t sigma = blurSigma(radius, image);
  const bool changed = sigma != radius_ || image != size_;
  if (changed && sigma != 0) setup(sigma, image);
  radius_ = sigma;
  size_ = image;
  return {sigma != 0, changed};
}

void Blur::release() {
  gl_.checked()->glDeleteTextures(2, texture_.data());
  gl_.checked()->glDeleteFramebuffers(2, framebuffer_.data());
  texture_ = framebuffer_ = {};
  vertBlur_.release();
  horzBlur_.release();
}

void Blur::setup(std::uint32_t sigma, Size image) {
  const std::uint32_t tapRadius = blurTapRadius(sigma);
  log(LogLevel::info, gl_.logName() + " setup blur sample radius=" + std::to_string(tapRadius) +
                          " sigma=" + std::to_string(sigma) + " size=(w: " + std::to_string(image.width) +
                          ", h: " + std::to_string(image.height) + ")");
  for (std::size_t picture = 0; picture < 2; ++picture) allocate(picture, image);

  const BlurKernel kernel(tapRadius, sigma);
  vertBlur_.setup(blurVertexShaderSource(kernel), blurFragmentShaderSource(kernel));
  vertBlur_.use();
  vertBlur_.setVertices(fullScreenQuad);
  vertBlur_.setTransform(identityTransform);
  setInput(vertBlur_, 0, 1 / static_cast<GLfloat>(image.width), 0);

  horzBlur_.setup();
  horzBlur_.use();
  setInput(horzBlur_, 1, 0, 1 / static_cast<GLfloat>(image.height));
}

void Blur::allocate(std::size_t picture, Size image) const {
  bindToUnit(gl_, textureUnit(picture), texture_[picture]);
  gl_.checked()->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, image.width, image.height, 0, GL_RGBA,
                              GL_UNSIGNED_BYTE, nullptr);
  gl_.checked()->glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_[picture]);
  gl_.checked()->glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                                        texture_[picture], 0);
  const GLenum status = gl_.functions().glCheckFramebufferStatus(GL_FRAMEBUFFER);
  if (status == GL_FRAMEBUFFER_COMPLETE) return;
  log(LogLevel::error, gl_.logName() + " framebuffer incomplete: " + std::to_string(status));
}

void Blur::setInput(const Program& program, std::size_t picture, GLfloat x, GLfloat y) const {
  gl_.checked()->glUniform2f(program.uniformLocation("texelSize"), x, y);
  gl_.checked()->glUniform1i(program.uniformLocation("inputTexture"),
                             static_cast<GLint>(textureUnit(picture)));
}

}  // namespace QelUtilVideo::opengl
