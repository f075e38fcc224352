#include "contract/PresentationStage.h"

#include <volk.h>

#include <chrono>
#include <thread>
#include <utility>
#include <vector>

namespace QelUtilVideo {
namespace {

using testing::Contains;
using testing::HasSubstr;

int losses = 0;  ///< submissions that are still to find the processor lost
PFN_vkQueueSubmit submit;

/// The graphics processor goes away, as when its driver is reset.
class LostProcessor : public PresentationStage {
 protected:
  void SetUp() override {
    PresentationStage::SetUp();
    if (IsSkipped()) return;
    submit = std::exchange(vkQueueSubmit,
                           [](VkQueue queue, std::uint32_t count, const VkSubmitInfo* infos, VkFence fence) {
                             if (losses == 0) return submit(queue, count, infos, fence);
                             --losses;
                             return VK_ERROR_DEVICE_LOST;
                           });
  }
  void TearDown() override {
    losses = 0;
    if (submit) vkQueueSubmit = std::exchange(submit, nullptr);
    PresentationStage::TearDown();
  }
  const TestCard card_{{72, 48}};
};

TEST_P(LostProcessor, isOpenedAnewAndEveryViewGoesOn) {
  fill(NSWindow::makeOffscreen({96, 64}));
  const auto other = std::exchange(view, nullptr);
  const auto otherWindow = window;
  fill(NSWindow::makeOffscreen({96, 64}));
  show(card_);
  expectShown({96, 64}, card_, {});
  for (int round = 0; round < 2; ++round) {
    losses = 1;
    const auto orientation = round == 0 ? CGImagePropertyOrientation::down : CGImagePropertyOrientation::left;
    show(card_, orientation);
    expectShown({96, 64}, card_, {orientation});
    expectShown([&] { return otherWindow->image(); }, {96, 64}, card_, {orientation});
    EXPECT_EQ(losses, 0);
  }
  EXPECT_THAT(machine_->takeTrouble(), Contains(HasSubstr("opened anew")));
}

TEST_P(LostProcessor, takesNoBlurAlong) {
  for (const bool isProcessorsOwn : {true, false}) {
    machine_->userDefaults().set("QelUtilVideoRenderViewMPSDisabled", !isProcessorsOwn);
    fill(NSWindow::makeOffscreen({72, 48}));
    view->setBlurRadius(0.1F);
    show(card_);
    std::vector<std::byte> before;
    const auto bytesShown = [&] {
      const auto image = window->image();
      const auto bytes = image ? image->dataProvider()->bytes() : nullptr;
      return bytes ? std::vector(bytes->data(), bytes->data() + bytes->size()) : std::vector<std::byte>();
    };
    ASSERT_TRUE(serveUntil([&] { return view->contentSize() == CGSize{72, 48}; }));
    ASSERT_TRUE(serveUntil([&] { return !(before = bytesShown()).empty(); }));
    losses = 1;
    show(card_);
    ASSERT_TRUE(serveUntil([&] { return losses == 0; }));
    EXPECT_TRUE(serveUntil([&] { return bytesShown() == before; }));
  }
  EXPECT_THAT(machine_->takeTrouble(), Contains(HasSubstr("opened anew")));
}

TEST_P(LostProcessor, thatIsLostForGoodTakesNobodyAlong) {
  fill(NSWindow::makeOffscreen({96, 64}));
  show(card_);
  expectShown({96, 64}, card_, {});
  losses = 1000;
  for (int frame = 0; frame < 30; ++frame) {
    show(card_);
    view->setFitInBounds(frame % 2 == 0);
    serve();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_GE(losses, 997) << "it was opened anew once";
  const auto late = RenderView::make({{0, 0}, {20, 20}});
  window->contentView()->addSubview(late);
  late->setImageBuffer(buffer);
  show(card_);
  serve();
  EXPECT_THAT(machine_->takeTrouble(), Contains(HasSubstr("vkQueueSubmit")));
}

INSTANTIATE_TEST_SUITE_P(Vulkan, LostProcessor, testing::Values(PresentedBy::metal), nameOf);

}  // namespace
}  // namespace QelUtilVideo
