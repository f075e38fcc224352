#include "contract/PresentationStage.h"
#include "support/ReferenceColors.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace QelUtilVideo {
namespace {

constexpr double kSmallestWeight = 1.0 / 256;

/// How a path weighs texels by their distance from the one in the centre, and whether what the first
/// direction gave is rounded to code values.
struct Taps {
  std::vector<double> weights;
  bool isRoundedBetween = true;
};

double gaussian(double distance, double sigma) {
  return std::exp(-distance * distance / (2 * sigma * sigma)) / (sigma * std::sqrt(2 * std::numbers::pi));
}

/// Up to where a Gaussian falls to the smallest weight, so that the two sides and the centre sum to one.
std::vector<double> cutGaussian(int sigma) {
  const double end = std::floor(
      std::sqrt(-2.0 * sigma * sigma * std::log(std::sqrt(2 * std::numbers::pi) * sigma * kSmallestWeight)));
  std::vector<double> weights;
  for (int i = 0; i <= static_cast<int>(end > sigma ? end : sigma); ++i)
    weights.push_back(gaussian(i, sigma));
  const double sum = 2 * std::accumulate(weights.begin() + 1, weights.end(), 0.0) + weights[0];
  for (double& weight : weights) weight /= sum;
  return weights;
}

Taps trueGaussian(int sigma) {
  Taps taps{{}, false};
  for (int i = 0; i <= 8 * sigma; ++i) taps.weights.push_back(gaussian(i, sigma));
  const double sum = 2 * std::accumulate(taps.weights.begin() + 1, taps.weights.end(), 0.0) + taps.weights[0];
  for (double& weight : taps.weights) weight /= sum;
  return taps;
}

/// Without the outermost weight.
Taps ownKernel(int sigma) {
  Taps taps{cutGaussian(sigma)};
  taps.weights.pop_back();
  return taps;
}

/// In pairs, which begin with the weight of the centre one step off it.
Taps pairsOfOpenGL(int sigma) {
  const std::vector<double> weights = cutGaussian(sigma);
  Taps taps{{weights[0]}};
  for (std::size_t i = 0; i + 1 < weights.size(); i += 2) {
    taps.weights.push_back(weights[i]);
    taps.weights.push_back(weights[i + 1]);
  }
  return taps;
}

using Picture = std::vector<Color>;

/// One direction, the colours beyond the border being those at it.
Picture blurred(const Picture& picture, PixelCount size, const Taps& taps, bool alongRows) {
  Picture result(picture.size());
  const auto width = static_cast<std::ptrdiff_t>(size.width),
             height = static_cast<std::ptrdiff_t>(size.height);
  for (std::ptrdiff_t y = 0; y < height; ++y) {
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      Color& sum = result[static_cast<std::size_t>(y * width + x)];
      for (std::ptrdiff_t i = 1 - std::ssize(taps.weights); i < std::ssize(taps.weights); ++i) {
        const std::ptrdiff_t column = std::clamp<std::ptrdiff_t>(x + (alongRows ? i : 0), 0, width - 1);
        const std::ptrdiff_t row = std::clamp<std::ptrdiff_t>(y + (alongRows ? 0 : i), 0, height - 1);
        const Color& color = picture[static_cast<std::size_t>(row * width + column)];
        const double weight = taps.weights[static_cast<std::size_t>(std::abs(i))];
        for (std::size_t c = 0; c < 3; ++c) sum[c] += weight * color[c];
      }
      for (double& component : sum) {
        component = std::clamp(component, 0.0, 255.0);
        if (taps.isRoundedBetween) component = std::round(component);
      }
    }
  }
  return result;
}

Picture pictureOf(const CGImage& image) {
  const auto code = [](std::byte value) { return static_cast<double>(std::to_integer<int>(value)); };
  Picture picture;
  for (std::size_t y = 0; y < image.height(); ++y) {
    const std::byte* pixel = image.dataProvider()->bytes()->data() + y * image.layout().bytesPerRow;
    for (std::size_t x = 0; x < image.width(); ++x, pixel += 4) {
      picture.push_back({code(pixel[2]), code(pixel[1]), code(pixel[0])});
    }
  }
  return picture;
}

/// The largest distance between what is shown, turned by the orientation, and a picture of the stored frame.
double difference(const CGImageRef& shown, const Picture& picture, PixelCount size,
                  CGImagePropertyOrientation orientation) {
  const bool sideways = swapsSides(orientation);
  const PixelCount seen{sideways ? size.height : size.width, sideways ? size.width : size.height};
  if (!shown || shown->width() != seen.width || shown->height() != seen.height) return 256;
  double largest = 0;
  for (std::size_t row = 0; row < seen.height; ++row) {
    for (std::size_t column = 0; column < seen.width; ++column) {
      const PicturePoint stored =
          storedPoint(orientation, {(static_cast<double>(column) + 0.5) / static_cast<double>(seen.width),
                                    (static_cast<double>(row) + 0.5) / static_cast<double>(seen.height)});
      const auto x = static_cast<std::size_t>(stored.x * static_cast<double>(size.width));
      const auto y = static_cast<std::size_t>(stored.y * static_cast<double>(size.height));
      const std::byte* pixel =
          shown->dataProvider()->bytes()->data() + row * shown->layout().bytesPerRow + column * 4;
      for (std::size_t c = 0; c < 3; ++c) {
        const double off = std::to_integer<int>(pixel[2 - c]) - picture[y * size.width + x][c];
        largest = std::max(largest, std::abs(off));
      }
    }
  }
  return largest;
}

/// The ways to blur that the backend has; with each it says whether it is the processor's own.
using Path = std::pair<bool, Taps (*)(int)>;

class BlurredPresentation : public PresentationStage {
 protected:
  [[nodiscard]] static std::vector<Path> paths() {
    if (GetParam() == PresentedBy::openGL) return {{false, pairsOfOpenGL}};
    return {{true, trueGaussian}, {false, ownKernel}};
  }
  void open(PixelCount size, bool isProcessorsOwn) {
    machine_->userDefaults().set("QelUtilVideoRenderViewMPSDisabled", !isProcessorsOwn);
    fill(NSWindow::makeOffscreen({static_cast<double>(size.width), static_cast<double>(size.height)}));
  }
  /// Such that the frame is blurred by so many pixels.
  void setRadius(int pixels, PixelCount size) {
    view->setBlurRadius(
        static_cast<float>((pixels - 0.5) / std::sqrt(static_cast<double>(size.width * size.height))));
  }
  /// The card as it is shown sharp, in a window of its size: what is blurred are those colours.
  Picture sharp(const TestCard& card) {
    view->setBlurRadius(0);
    show(card);
    expectShown(card.size(), card, {});
    return pictureOf(*window->image());
  }
  void expectBlurred(const Picture& picture, const TestCard& card, const Taps& taps,
                     CGImagePropertyOrientation orientation = CGImagePropertyOrientation::up) {
    const Picture expected = blurred(blurred(picture, card.size(), taps, true), card.size(), taps, false);
    double off = 0;
    EXPECT_TRUE(serveUntil([&] {
      off = difference(window->image(), expected, card.size(), orientation);
      return off <= 2;
    })) << "off by "
        << off;
  }
};

TEST_P(BlurredPresentation, weighsItsOwnTapsOfEveryTexelAlsoAtTheBorders) {
  using enum CGImagePropertyOrientation;
  const TestCard card({54, 42});
  for (const auto& [isProcessorsOwn, tapsOf] : paths()) {
    open(card.size(), isProcessorsOwn);
    const Picture picture = sharp(card);
    for (const auto& [pixels, orientation] :
         {std::pair(1, up), std::pair(5, down), std::pair(10, upMirrored), std::pair(16, up)}) {
      SCOPED_TRACE(testing::Message() << pixels << " pixels, the processor's own: " << isProcessorsOwn);
      setRadius(pixels, card.size());
      show(card, orientation);
      expectBlurred(picture, card, tapsOf(pixels), orientation);
    }
    window->setContentSize({42, 54});
    setRadius(5, card.size());
    for (const CGImagePropertyOrientation orientation : {right, left}) {
      show(card, orientation);
      expectBlurred(picture, card, tapsOf(5), orientation);
    }
    EXPECT_TRUE(serveUntil([&] { return view->contentSize() == CGSize{42, 54}; }));
  }
}

TEST_P(BlurredPresentation, comesAndGoesWithItsRadiusAndFollowsTheFramesSize) {
  const TestCard small({36, 30}), large({54, 42});
  for (const auto& [isProcessorsOwn, tapsOf] : paths()) {
    open(large.size(), isProcessorsOwn);
    const Picture picture = sharp(large);
    setRadius(5, large.size());
    expectBlurred(picture, large, tapsOf(5));
    for (const float none :
         {0.0F, -1.0F, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
      view->setBlurRadius(none);
      expectShown(large.size(), large, {});
      view->setBlurRadius(1e30F);
      expectBlurred(picture, large, tapsOf(16));
    }
    window->setContentSize({36, 30});
    setRadius(3, large.size());
    show(small);
    const Picture other = sharp(small);
    setRadius(3, small.size());
    expectBlurred(other, small, tapsOf(3));
  }
}

TEST_P(BlurredPresentation, survivesAStorm) {
  const std::array cards{TestCard({54, 42}), TestCard({48, 36})};
  for (const auto& [isProcessorsOwn, tapsOf] : paths()) {
    open({54, 42}, isProcessorsOwn);
    const Picture picture = sharp(cards[0]);
    for (std::size_t frame = 0; frame < 120; ++frame) {
      setRadius(static_cast<int>(frame * 7 % 17), {54, 42});
      if (frame % 3 == 0) show(cards[frame / 3 % 2]);
      serve();
      std::this_thread::sleep_for(std::chrono::milliseconds(8));
    }
    show(cards[0]);
    setRadius(10, {54, 42});
    expectBlurred(picture, cards[0], tapsOf(10));
  }
}

INSTANTIATE_TEST_SUITE_P(Backends, BlurredPresentation,
                         testing::Values(PresentedBy::metal, PresentedBy::openGL), nameOf);

}  // namespace
}  // namespace QelUtilVideo
