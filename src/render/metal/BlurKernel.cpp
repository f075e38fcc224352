#include "render/metal/BlurKernel.h"

#include <cmath>

namespace QelUtilVideo::metal {

namespace {

constexpr float kTwoPi = 6.283185F;
constexpr float kSmallestDensity = 0.00390625F;  // 1/256
constexpr float kLargestRadius = 16;

}  // namespace

std::size_t pixelRadius(std::size_t width, std::size_t height, float blurRadius) {
  if (!std::isfinite(blurRadius) || blurRadius <= 0) return 0;
  const float product = static_cast<float>(width) * static_cast<float>(height) * blurRadius * blurRadius;
  const float radius = std::ceil(std::sqrt(product));
  // One that is too large for a float too.
  return radius > kLargestRadius ? static_cast<std::size_t>(kLargestRadius)
                                 : static_cast<std::size_t>(radius);
}

std::size_t kernelHalfWidth(std::size_t radius) {
  const auto sigma = static_cast<float>(radius);
  const float variance = sigma * sigma;
  const float x =
      std::floor(std::sqrt(-2 * variance * std::log(std::sqrt(kTwoPi * variance) * kSmallestDensity)));
  return std::isfinite(x) && x > sigma ? static_cast<std::size_t>(x) : radius;
}

std::vector<float> kernelWeights(std::size_t radius) {
  const auto sigma = static_cast<float>(radius);
  const float variance = sigma * sigma;
  std::vector<float> weights(kernelHalfWidth(radius) + 1);
  float sides = 0;
  for (std::size_t i = 0; i < weights.size(); ++i) {
    const auto square = static_cast<float>(i * i);
    weights[i] = 1 / std::sqrt(kTwoPi * variance) * std::exp(-square / (2 * variance));
    if (i > 0) sides += weights[i];
  }
  const float sum = weights[0] + 2 * sides;
  for (float& weight : weights) weight /= sum;
  return weights;
}

}  // namespace QelUtilVideo::metal
