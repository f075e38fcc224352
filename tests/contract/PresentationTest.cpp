#include "contract/PresentationStage.h"
#include "support/WarmUp.h"

#include <dlfcn.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace QelUtilVideo {
namespace {

using namespace std::chrono_literals;

// What drivers, the dispatcher and the system log keep until the process ends. The layers that watch come
// later: what they keep about a device that is never destroyed would count as leaked.
const qeltest::WarmUp warmUp([] {
  static WatchedPlatform* const kept = std::make_unique<WatchedPlatform>().release();
  static_cast<void>(kept->metal().MTLCreateSystemDefaultDevice());
  static_cast<void>(kept->openGL().makeContext({}, nullptr));
  // Once loaded it stays, so that what it leaks itself can be told from what we do.
  static_cast<void>(::dlopen("libVkLayer_khronos_validation.so", RTLD_NOW | RTLD_NODELETE));
  // NOLINTBEGIN(concurrency-mt-unsafe): no threads that read it yet
  ::setenv("VK_INSTANCE_LAYERS", "VK_LAYER_KHRONOS_validation", 0);
  ::setenv("VK_LAYER_ENABLES", "VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT", 0);
  // NOLINTEND(concurrency-mt-unsafe)
});

class Presentation : public PresentationStage {
 protected:
  void open(CGSize size, double backingScale = 1) { fill(NSWindow::makeOffscreen(size, backingScale)); }

  void expectEveryOrientation(PixelCount surface, const TestCard& card) {
    const bool isWide = surface.width > surface.height;
    for (const CGImagePropertyOrientation orientation : allOrientations) {
      const bool cardIsWide = swapsSides(orientation) ? card.size().height > card.size().width
                                                      : card.size().width > card.size().height;
      for (const std::optional<bool> fit :
           {std::optional(true), std::optional(false), std::optional<bool>()}) {
        view->setAutomaticallyAdjustsFitMode(!fit);
        if (fit) view->setFitInBounds(*fit);
        show(card, orientation);
        expectShown(surface, card, {orientation, fit.value_or(isWide != cardIsWide)});
        if (HasFailure()) return;
      }
    }
  }
  [[nodiscard]] std::uint32_t pixelInTheMiddle() const {
    std::uint32_t pixel = 0;
    const auto image = window->image();
    if (!image) return 0;
    const std::size_t offset = image->height() / 2 * image->layout().bytesPerRow + image->width() / 2 * 4;
    std::memcpy(&pixel, image->dataProvider()->bytes()->data() + offset, sizeof pixel);
    return pixel;
  }
};

TEST_P(Presentation, putsEveryPatchWhereItBelongsInItsColour) {
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

TEST_P(Presentation, turnsWithTheClock) {
  open({96, 64});
  view->setRotateAnimationEnabled(true);
  const TestCard card({72, 48});
  show(card);
  expectShown({96, 64}, card, {});
  machine_->holdClock(0);
  show(card, CGImagePropertyOrientation::right);
  // A quarter turn takes a sixth of a second.
  expectShown({96, 64}, card, {CGImagePropertyOrientation::right, true, -90});
  machine_->moveClock(1.0 / 18);
  expectShown({96, 64}, card, {CGImagePropertyOrientation::right, true, -60});
  machine_->moveClock(1.0 / 18);
  expectShown({96, 64}, card, {CGImagePropertyOrientation::right, true, -30});
  machine_->moveClock(1);
  expectShown({96, 64}, card, {CGImagePropertyOrientation::right, true});
  EXPECT_TRUE(serveUntil([&] { return view->contentSize() == CGSize{48, 72}; }));
}

TEST_P(Presentation, showsTheBackgroundWhereThereIsNoFrameToShow) {
  constexpr std::uint32_t kPlain = 0xFF336699;
  open({40, 40});
  EXPECT_TRUE(serveUntil([&] { return pixelInTheMiddle() == kPlain; })) << "nothing was ever set";
  const TestCard card({48, 48});
  const auto isBackAndGone = [&](const auto& take, const auto& give) {
    show(card);
    expectShown({40, 40}, card, {});
    EXPECT_TRUE(serveUntil([&] { return view->contentSize() == CGSize{48, 48}; }));
    take();
    EXPECT_TRUE(serveUntil([&] { return pixelInTheMiddle() == kPlain; }));
    EXPECT_TRUE(serveUntil([&] { return view->contentSize() == CGSize{}; }));
    give();
    expectShown({40, 40}, card, {});
  };
  isBackAndGone([&] { view->setDeviceType(std::uint8_t{200}); }, [&] { view->setDeviceType(std::nullopt); });
  isBackAndGone([&] { view->setDataSource(nullptr); }, [&] { view->setImageBuffer(buffer); });
  isBackAndGone([&] { buffer->setImage(nullptr, now_ += 1); }, [&] { show(card); });

  view->setBackgroundColor(NSColor::deviceRGB(1, 0.5, 0, 0.25));
  view->setDataSource(nullptr);
  // A window's image is multiplied by alpha, once.
  EXPECT_TRUE(serveUntil([&] { return pixelInTheMiddle() == 0x40402000U; }))
      << std::hex << pixelInTheMiddle();
}

TEST_P(Presentation, isSetAndDroppedWhileItDraws) {
  const TestCard card({72, 48});
  for (int round = 0; round < 20; ++round) {
    open({96, 64});
    for (int change = 0; change < 10; ++change) {
      show(card, allOrientations[static_cast<std::size_t>(change % 8)]);
      view->setAutomaticallyAdjustsFitMode(change % 2 == 0);
      view->setFitInBounds(change % 3 == 0);
      view->setDataSource(change % 5 == 4 ? nullptr : buffer);
      view->setFrame(CGRectMake(0, 0, 96 - change, 64));
      std::this_thread::sleep_for(1ms);
      if (change % 4 == 0) serve();
    }
    serve();
  }
}

INSTANTIATE_TEST_SUITE_P(Backends, Presentation, testing::Values(PresentedBy::metal, PresentedBy::openGL),
                         nameOf);

}  // namespace
}  // namespace QelUtilVideo
