#include "render/opengl/BlurKernel.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace QelUtilVideo::opengl {

namespace {

constexpr float largestSigma = 16;

/// What weighs less at the edge of the kernel would not change an 8-bit colour.
constexpr double smallestWeight = 0.00390625;

constexpr double twoPi = 6.283185307179586;

/// The weights from the centre to one side, normalised over both.
std::vector<double> gaussianWeights(std::uint32_t tapRadius, std::uint32_t sigma) {
  const double variance = static_cast<double>(sigma) * sigma;
  std::vector<double> weights;
  for (std::uint32_t k = 0; k <= tapRadius; ++k) {
    const double distance = k;
    weights.push_back(1 / std::sqrt(twoPi * variance) * std::exp(-(distance * distance) / (2 * variance)));
  }
  const double total = weights[0] + 2 * std::accumulate(weights.begin() + 1, weights.end(), 0.0);
  for (double& weight : weights) weight /= total;
  return weights;
}

}  // namespace

std::uint32_t blurSigma(float radius, PixelSize<std::int32_t> image) {
  if (!std::isfinite(radius) || radius <= 0 || image.width <= 0 || image.height <= 0) return 0;
  const float area = static_cast<float>(image.width) * static_cast<float>(image.height);
  return static_cast<std::uint32_t>(std::min(std::ceil(std::sqrt(area * radius * radius)), largestSigma));
}

std::uint32_t blurTapRadius(std::uint32_t sigma) {
  const double variance = static_cast<double>(sigma) * sigma;
  const double reach =
      std::floor(std::sqrt(-2 * variance * std::log(std::sqrt(twoPi * variance) * smallestWeight)));
  return std::isfinite(reach) && reach > sigma ? static_cast<std::uint32_t>(reach) : sigma;
}

BlurKernel::BlurKernel(std::uint32_t tapRadius, std::uint32_t sigma) {
  tapRadius = std::max(tapRadius, 1U);
  const std::vector<double> weights = gaussianWeights(tapRadius, sigma);
  centerWeight = weights[0];
  const std::size_t pairCount = tapRadius / 2 + tapRadius % 2;
  for (std::size_t pair = 0; pair < pairCount; ++pair) {
    const double near = weights[2 * pair];
    const double far = weights[2 * pair + 1];
    const auto distance = static_cast<double>(2 * pair + 1);
    pairs.push_back({(distance * near + (distance + 1) * far) / (near + far), near + far});
  }
}

}  // namespace QelUtilVideo::opengl
