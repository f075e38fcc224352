#include "render/Backends.h"
#include "render/DataSourceDescription.h"
#include "render/RenderStage.h"
#include "render/RenderViewImpl.h"
#include "render/opengl/OpenGLLayer.h"
#include "render/opengl/OpenGLRenderView.h"

#include <QelUtilVideo/RenderViewData.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/NSCoder.h>

#include <array>
#include <stdexcept>
#include <thread>

namespace QelUtilVideo {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

class BadlyDescribedSource final : public RenderViewDataSource {
 public:
  double timestamp() const override { return 1; }
  bool hasImage() const override { return false; }
  std::shared_ptr<const RenderViewData> data() const override { return nullptr; }
  std::string description() const override { throw std::runtime_error("no words"); }
};

class Archive final : public NSCoder {
 public:
  std::optional<CGRect> frame;
  bool hidden = false;
  std::optional<CGRect> decodeRect(std::string_view) override { return frame; }
  bool decodeBool(std::string_view) override { return hidden; }
};

/// Who may assign a content size.
struct Backend : RenderViewImpl {
  using RenderViewImpl::assignContentSize;
};
template <class View>
concept LetsTheHostAssign = requires(View& view) {
  view.setContentSize(CGSize{});
};

using RenderViewTest = RenderStage;

// ── Choice of the backend ─────────────────────────────────────────────────────────────────────────

TEST(BackendsTest, metalIsChosenWhereItExistsAndIsNotSwitchedOff) {
  ScopedMachine machine;
  int made = 0;
  Root::current().get<Backends>().setMetalFactory(
      [&](CGRect frame, const std::shared_ptr<MTLDevice>& device) {
        EXPECT_NE(device, nullptr);
        EXPECT_EQ(frame, CGRectMake(0, 0, 30, 20));
        made += 1;
        return makeOpenGLRenderView(frame);
      });
  const auto metalViewsMade = [&] {
    RenderView::make(CGRectMake(5, 5, 30, 20));
    return std::exchange(made, 0);
  };
  EXPECT_EQ(metalViewsMade(), 0);
  machine->metal().setPresent(true);
  EXPECT_EQ(metalViewsMade(), 1);
  machine->userDefaults().set("QelUtilVideoRenderViewMetalDisabled", true);
  EXPECT_EQ(metalViewsMade(), 0);
  machine->userDefaults().set("QelUtilVideoRenderViewMetalDisabled", false);
  Root::current().get<Backends>().setMetalFactory({});
  EXPECT_EQ(metalViewsMade(), 0);
}

// ── The view ──────────────────────────────────────────────────────────────────────────────────────

TEST_F(RenderViewTest, theBackendFillsTheBoundsBelowWhateverTheHostAdds) {
  view->addSubview(std::make_shared<NSView>(CGRectZero));
  ASSERT_EQ(view->subviews().size(), 2u);
  EXPECT_NE(view->subviews()[0]->layer(), nullptr);
  view->setFrame(CGRectMake(3, 4, 111, 77));
  EXPECT_EQ(view->subviews()[0]->frame(), CGRectMake(0, 0, 111, 77));
}

TEST_F(RenderViewTest, hidingReachesTheBackendAndStopsItsRefreshes) {
  for (const bool hidden : {false, true, false}) {
    view->setHidden(hidden);
    EXPECT_EQ(view->subviews()[0]->isHidden(), hidden);
    EXPECT_EQ(machine->openGL().liveDrivers(), hidden ? 0u : 1u);
  }
}

TEST_F(RenderViewTest, anArchivedViewTakesItsFrameAndHiddenFlag) {
  Archive archive;
  EXPECT_EQ(RenderView::make(archive), nullptr);
  archive.frame = CGRectMake(1, 2, 30, 40);
  archive.hidden = true;
  const auto decoded = RenderView::make(archive);
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(decoded->frame(), CGRectMake(1, 2, 30, 40));
  EXPECT_EQ(decoded->subviews().at(0)->frame(), CGRectMake(0, 0, 30, 40));
  EXPECT_TRUE(decoded->subviews().at(0)->isHidden());
}

TEST_F(RenderViewTest, imageBufferAndDataSourceAreOneSlotAndTheDelegateIsNotKept) {
  view->setImageBuffer(buffer);
  EXPECT_EQ(view->dataSource(), buffer);
  EXPECT_EQ(view->imageBuffer(), buffer);
  const auto other = std::make_shared<BadlyDescribedSource>();
  view->setDataSource(other);
  EXPECT_EQ(view->imageBuffer(), nullptr);
  EXPECT_EQ(view->dataSource(), other);
  view->setDelegate(std::make_shared<RenderViewDelegate>());
  EXPECT_EQ(view->delegate(), nullptr);
}

TEST_F(RenderViewTest, deviceTypeAndItsCasesAreOneSetting) {
  view->setDeviceTypeObjC(DeviceType::type1);
  EXPECT_EQ(view->deviceType(), 1);
  view->setDeviceType(7);
  EXPECT_EQ(view->deviceTypeObjC(), DeviceType::unspecified);
  view->setDeviceTypeObjC(DeviceType::unspecified);
  EXPECT_EQ(view->deviceType(), std::nullopt);
  EXPECT_EQ(makeDeviceType(-2), std::nullopt);
  EXPECT_EQ(makeDeviceType(-1), DeviceType::unspecified);
}

TEST_F(RenderViewTest, everyObserverHearsOfTheContentSizeInOrderWhateverTheOthersDo) {
  static_assert(!LetsTheHostAssign<RenderView>);
  std::vector<std::string> heard;
  const auto hear = [&](const std::string& who, CGSize size) {
    heard.push_back(who + " " + std::to_string(static_cast<int>(size.width)));
  };
  RenderView::ObserverToken once = 0, never = 0;
  static_cast<void>(view->addContentSizeObserver([&](CGSize size) {
    hear("first", size);
    if (size.width == 1) Backend::assignContentSize(*view, {2, 2});
    throw std::runtime_error("no room");
  }));
  // What it holds ends with a call to the view, while the view lets go of it.
  std::shared_ptr<void> farewell(nullptr, [&](void*) { view->removeContentSizeObserver(never); });
  once = view->addContentSizeObserver([&, held = std::move(farewell)](CGSize size) {
    hear("once", size);
    view->removeContentSizeObserver(once);
    view->removeContentSizeObserver(never);
    static_cast<void>(view->addContentSizeObserver([&](CGSize later) { hear("added", later); }));
    hear("still", size);
  });
  never = view->addContentSizeObserver([&](CGSize size) { hear("never", size); });
  static_cast<void>(view->addContentSizeObserver([&](CGSize size) { hear("last", size); }));
  view->removeContentSizeObserver(view->addContentSizeObserver(nullptr));
  view->removeContentSizeObserver(1234);

  // The first observer brings a newer size before the others heard of the older one.
  Backend::assignContentSize(*view, {1, 1});
  EXPECT_THAT(heard, ElementsAre("first 1", "first 2", "once 2", "still 2", "last 2", "last 2"));
  heard.clear();
  Backend::assignContentSize(*view, {3, 3});
  EXPECT_THAT(heard, ElementsAre("first 3", "last 3", "added 3"));
  EXPECT_EQ(view->contentSize(), (CGSize{3, 3}));
  EXPECT_THAT(machine->systemLog().troubles(),
              AllOf(SizeIs(3), Each(HasSubstr("an observer of contentSize threw: no room"))));
}

// ── Sources ───────────────────────────────────────────────────────────────────────────────────────

TEST_F(RenderViewTest, settingASourceIsLoggedAndOffTheMainThreadAnErrorBesides) {
  log.clear();
  std::thread([&] { view->setImageBuffer(buffer); }).join();
  EXPECT_EQ(view->imageBuffer(), buffer);
  view->setImageBuffer(nullptr);
  const std::string error = "[RenderView:OpenGL:1] must not update image buffer not on the main thread";
  EXPECT_THAT(log.messages(LogLevel::error), ElementsAre(error));
  EXPECT_THAT(log.messages(),
              ElementsAre(error, "[RenderView:OpenGL:1] setDataSource " + buffer->description(),
                          "[RenderView:OpenGL:1] setDataSource <nil>"));
  EXPECT_THAT(dataSourceDescription(std::make_shared<BadlyDescribedSource>()),
              HasSubstr("BadlyDescribedSource: 0x"));
}

TEST_F(RenderViewTest, anImageBufferHandsOutOneFrameAsAWholeWithAReferenceOfItsOwn) {
  QelKit::SynchronizedData given{};
  EXPECT_EQ(buffer->getSynchronizedData(given), nullptr);
  EXPECT_EQ(buffer->data()->pixelBuffer(), nullptr);

  const auto pixels = makeFrame(4, 2);
  buffer->setImage(pixels, 1.5, CGImagePropertyOrientation::left, 3, 4);
  EXPECT_TRUE(buffer->hasImage());
  EXPECT_EQ(buffer->getSynchronizedData(given), pixels);
  const auto data = buffer->data();
  buffer->setImage(nullptr, 4);
  EXPECT_FALSE(buffer->hasImage());
  EXPECT_EQ(buffer->timestamp(), 4);
  EXPECT_EQ(data->pixelBuffer(), pixels);
  EXPECT_EQ(given.pixelBuffer, pixels.get());
  EXPECT_EQ(given.orientation, static_cast<std::uint32_t>(data->orientation()));
  EXPECT_EQ(data->orientation(), CGImagePropertyOrientation::left);
  EXPECT_THAT((std::array{data->timestamp(), given.timestamp}), testing::Each(1.5));
  EXPECT_THAT((std::array{data->deviceID(), given.deviceID}), testing::Each(3));
  EXPECT_THAT((std::array{data->deviceType(), given.deviceType}), testing::Each(4));
}

TEST_F(RenderViewTest, theReplacedFrameIsReleasedWhileItsBufferIsFree) {
  std::array<std::byte, 16> bytes{};
  double seen = 0;
  CVPixelBufferRef pixels;
  const auto released = [&] { seen = buffer->timestamp(); };
  ASSERT_EQ(CVPixelBufferCreateWithBytes(2, 2, kCVPixelFormatType_32BGRA, bytes.data(), 8, released, pixels),
            0);
  buffer->setImage(std::move(pixels), 1);
  buffer->setImage(nullptr, 2);
  EXPECT_EQ(seen, 2);
}

// ── Unsupported archives ──────────────────────────────────────────────────────────────────────────

TEST(ArchiveDeathTest, viewAndLayerOfTheBackendCannotBeDecoded) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  ScopedMachine machine;
  Archive archive;
  EXPECT_DEATH(static_cast<void>(opengl::OpenGLRenderView::make(archive)),
               "\\[OpenGLRenderView\\] init\\(coder:\\) has not been implemented");
  EXPECT_DEATH(static_cast<void>(opengl::OpenGLLayer::make(archive)),
               "\\[OpenGLLayer\\] init\\(coder:\\) has not been implemented");
}

}  // namespace
}  // namespace QelUtilVideo
