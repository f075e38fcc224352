#include "platform/OpenGL.h"
#include "platform/Root.h"
#include "render/ExifCorners.h"
#include "support/WarmUp.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/NSColor.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace QelUtilVideo {
namespace {

using namespace std::chrono_literals;

// The driver, the dispatcher and the system log keep what they have opened until the process ends.
const qeltest::WarmUp warmUp([] {
  setenv("QelUtilVideoRenderViewMetalDisabled", "1", 1);
  static_cast<void>(RenderView::make(CGRectMake(0, 0, 8, 8)));
  MainLoop::main().dispatchPending();
  static_cast<void>(Root::current().platform().openGL().makeContext({}, nullptr));
});

struct PixelCount {
  std::size_t width;
  std::size_t height;
};

/// Red, green, blue as code values.
using Color = std::array<double, 3>;
constexpr Color background{51, 102, 153};

/// The library renders on threads of its own; the main queue gets its time from here.
template <class Condition>
bool eventually(const Condition& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    MainLoop::main().dispatchPending();
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

struct YCbCr {
  std::uint8_t y, cb, cr;
};

/// A picture of three by three patches, each of a colour of its own, the one in the corner where the
/// stored rows begin unlike all others. Rows are as short as they can be.
class TestCard {
 public:
  explicit TestCard(PixelCount size) : size_(size) {
    const std::size_t chromaWidth = (size.width + 1) / 2;
    const std::size_t chromaHeight = (size.height + 1) / 2;
    const std::size_t lumaSize = size.width * size.height;
    auto bytes = std::make_shared<std::vector<std::byte>>(lumaSize + chromaWidth * 2 * chromaHeight);
    std::byte* chroma = bytes->data() + lumaSize;
    for (std::size_t y = 0; y < size.height; ++y) {
      for (std::size_t x = 0; x < size.width; ++x) {
        const YCbCr& code = codes[patchAt(x, y)];
        (*bytes)[y * size.width + x] = std::byte{code.y};
        std::byte* pair = chroma + (y / 2 * chromaWidth + x / 2) * 2;
        pair[0] = std::byte{code.cb};
        pair[1] = std::byte{code.cr};
      }
    }
    const std::vector<PixelPlane> planes{{bytes->data(), size.width, size.height, size.width},
                                         {chroma, chromaWidth, chromaHeight, chromaWidth * 2}};
    EXPECT_EQ(CVPixelBufferCreateWithPlanarBytes(
                  size.width, size.height, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, planes,
                  [bytes] {}, pixels_),
              kCVReturnSuccess);
  }

  [[nodiscard]] const CVPixelBufferRef& pixels() const { return pixels_; }
  [[nodiscard]] PixelCount size() const { return size_; }

  /// The colour at a place of the stored picture, in its pixels; absent close to another patch, where
  /// the colours run into each other.
  [[nodiscard]] std::optional<Color> colorAt(double x, double y) const {
    constexpr double margin = 4;
    const auto patch = [&](double dx, double dy) {
      const auto within = [](double place, std::size_t length) {
        return static_cast<std::size_t>(std::clamp(place, 0.0, static_cast<double>(length) - 1));
      };
      return patchAt(within(x + dx, size_.width), within(y + dy, size_.height));
    };
    const std::size_t here = patch(0, 0);
    for (const double dx : {-margin, margin}) {
      for (const double dy : {-margin, margin}) {
        if (patch(dx, dy) != here) return std::nullopt;
      }
    }
    return rgb(codes[here]);
  }

 private:
  static constexpr std::array<YCbCr, 9> codes{{{235, 128, 128},
                                               {81, 90, 240},
                                               {145, 54, 34},
                                               {41, 240, 110},
                                               {126, 128, 128},
                                               {16, 128, 128},
                                               {170, 166, 16},
                                               {106, 202, 222},
                                               {90, 100, 150}}};

  /// Patches meet at even pixels, so that no chroma sample lies in two of them.
  [[nodiscard]] std::size_t patchAt(std::size_t x, std::size_t y) const {
    const auto third = [](std::size_t place, std::size_t length) {
      const std::size_t side = length / 3 & ~std::size_t{1};
      return std::min<std::size_t>(place / side, 2);
    };
    return third(y, size_.height) * 3 + third(x, size_.width);
  }

  static Color rgb(YCbCr code) {
    const double y = 1.1643 * (code.y / 255.0 - 0.0625);
    const double cb = code.cb / 255.0 - 0.5;
    const double cr = code.cr / 255.0 - 0.5;
    const auto codeValue = [](double component) { return std::clamp(component, 0.0, 1.0) * 255; };
    return {codeValue(y + 1.5958 * cr), codeValue(y - 0.39173 * cb - 0.81290 * cr),
            codeValue(y + 2.017 * cb)};
  }

  PixelCount size_;
  CVPixelBufferRef pixels_;
};

/// What is wrong with a picture of the card; empty: nothing. Pixels near an edge are not judged.
std::string faultIn(const CGImageRef& image, PixelCount surface, const TestCard& card,
                    CGImagePropertyOrientation orientation, bool fit) {
  if (!image) return "no picture";
  if (image->width() != surface.width || image->height() != surface.height)
    return "a picture of another size";
  const bool sideways = swapsSides(orientation);
  const auto shownWidth = static_cast<double>(sideways ? card.size().height : card.size().width);
  const auto shownHeight = static_cast<double>(sideways ? card.size().width : card.size().height);
  const double scaleX = static_cast<double>(surface.width) / shownWidth;
  const double scaleY = static_cast<double>(surface.height) / shownHeight;
  const double scale = fit ? std::min(scaleX, scaleY) : std::max(scaleX, scaleY);
  const double left = (static_cast<double>(surface.width) - shownWidth * scale) / 2;
  const double top = (static_cast<double>(surface.height) - shownHeight * scale) / 2;

  const auto bytes = image->dataProvider()->bytes();
  std::size_t judged = 0;
  for (std::size_t row = 0; row < surface.height; ++row) {
    for (std::size_t column = 0; column < surface.width; ++column) {
      const double x = (static_cast<double>(column) + 0.5 - left) / (shownWidth * scale);
      const double y = (static_cast<double>(row) + 0.5 - top) / (shownHeight * scale);
      const double outside =
          std::max({-x * shownWidth, (x - 1) * shownWidth, -y * shownHeight, (y - 1) * shownHeight});
      if (std::abs(outside) * scale < 1) continue;
      std::optional<Color> expected = background;
      if (outside < 0) {
        const PicturePoint stored = storedPoint(orientation, {x, y});
        expected = card.colorAt(stored.x * static_cast<double>(card.size().width),
                                stored.y * static_cast<double>(card.size().height));
      }
      if (!expected) continue;
      judged += 1;
      const std::byte* pixel = bytes->data() + row * image->layout().bytesPerRow + column * 4;
      for (std::size_t component = 0; component < 3; ++component) {
        const auto found = std::to_integer<int>(pixel[2 - component]);
        if (std::abs(found - (*expected)[component]) > 1) {
          return "at " + std::to_string(column) + ", " + std::to_string(row) + " component " +
                 std::to_string(component) + " is " + std::to_string(found) + " instead of " +
                 std::to_string((*expected)[component]);
        }
      }
    }
  }
  return judged > surface.width * surface.height / 8 ? "" : "too few pixels to judge";
}

/// A view in an off-screen window on the machine's own OpenGL.
struct PresentationTest : testing::Test {
  std::shared_ptr<NSWindow> window;
  std::shared_ptr<RenderView> view;
  std::shared_ptr<QelKit::QelVideoImageBuffer> buffer = std::make_shared<QelKit::QelVideoImageBuffer>();
  double now = 0;

  void SetUp() override {
    if (!Root::current().platform().openGL().makeContext({}, nullptr)) {
      GTEST_SKIP() << "This machine has no OpenGL driver, not even a software one.";
    }
  }

  void open(CGSize size, double backingScale = 1) {
    window = NSWindow::makeOffscreen(size, backingScale);
    view = RenderView::make(window->contentView()->bounds());
    view->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
    view->setBackgroundColor(
        NSColor::deviceRGB(background[0] / 255, background[1] / 255, background[2] / 255));
    view->setImageBuffer(buffer);
    window->contentView()->addSubview(view);
  }

  /// Waits until the window shows the card as it should; else says what is wrong.
  void expectShown(PixelCount surface, const TestCard& card, CGImagePropertyOrientation orientation,
                   bool fit) {
    std::string fault;
    EXPECT_TRUE(eventually([&] {
      fault = faultIn(window->image(), surface, card, orientation, fit);
      return fault.empty();
    })) << "orientation "
        << static_cast<int>(orientation) << (fit ? ", fit: " : ", cover: ") << fault;
  }

  void expectEveryOrientation(PixelCount surface, const TestCard& card) {
    for (const CGImagePropertyOrientation orientation : allOrientations) {
      for (const bool fit : {true, false}) {
        view->setFitInBounds(fit);
        buffer->setImage(card.pixels(), now += 1, orientation);
        expectShown(surface, card, orientation, fit);
        if (HasFailure()) return;
      }
    }
  }
};

TEST_F(PresentationTest, everyPatchIsWhereItBelongsInItsColour) {
  open({96, 64});
  expectEveryOrientation({96, 64}, TestCard({72, 48}));
  // Odd sizes are no exception, neither in the picture nor in the view.
  window->setContentSize({63, 97});
  expectEveryOrientation({63, 97}, TestCard({57, 45}));
  window->setContentSize({101, 47});
  expectEveryOrientation({101, 47}, TestCard({45, 51}));
  // A view of two pixels per point is drawn in pixels.
  open({48, 40}, 2);
  expectEveryOrientation({96, 80}, TestCard({48, 48}));
}

TEST_F(PresentationTest, theContentSizeIsReportedAndAnAnimatedTurnComesToRest) {
  open({96, 64});
  view->setRotateAnimationEnabled(true);
  view->setFitInBounds(true);
  const TestCard card({72, 48});
  buffer->setImage(card.pixels(), now += 1);
  expectShown({96, 64}, card, CGImagePropertyOrientation::up, true);
  buffer->setImage(card.pixels(), now += 1, CGImagePropertyOrientation::right);
  expectShown({96, 64}, card, CGImagePropertyOrientation::right, true);
  EXPECT_TRUE(eventually([&] { return view->contentSize() == CGSize{48, 72}; }));
}

TEST_F(PresentationTest, viewsAreSetAndDroppedWhileTheyDraw) {
  const TestCard card({72, 48});
  for (int round = 0; round < 30; ++round) {
    open({96, 64});
    for (int change = 0; change < 10; ++change) {
      buffer->setImage(card.pixels(), now += 1, allOrientations[static_cast<std::size_t>(change % 8)]);
      view->setAutomaticallyAdjustsFitMode(change % 2 == 0);
      view->setFitInBounds(change % 3 == 0);
      view->setDataSource(change % 5 == 4 ? nullptr : buffer);
      view->setFrame(CGRectMake(0, 0, 96 - change, 64));
      std::this_thread::sleep_for(1ms);
    }
    MainLoop::main().dispatchPending();
  }
}

}  // namespace
}  // namespace QelUtilVideo
