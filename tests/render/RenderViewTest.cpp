#include "render/Backends.h"
#include "render/DataSourceDescription.h"
#include "render/RenderStage.h"
#include "render/RenderViewImpl.h"
#include "render/opengl/OpenGLLayer.h"
#include "render/opengl/OpenGLRenderView.h"

#include <QelUtilVideo/RenderViewData.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/NSCoder.h>
#include <QelUtilVideo/platform/NSColor.h>

#include <stdexcept>
#include <thread>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class PlainSource : public RenderViewDataSource {
 public:
  double timestamp() const override { return 1; }
  bool hasImage() const override { return false; }
  std::shared_ptr<const RenderViewData> data() const override { return nullptr; }
};

class BadlyDescribedSource final : public PlainSource {
  std::string description() const override { throw std::runtime_error("no words"); }
};

class Archive final : public NSCoder {
 public:
  std::optional<CGRect> frame;
  bool hidden = false;
  std::optional<CGRect> decodeRect(std::string_view) override { return frame; }
  bool decodeBool(std::string_view) override { return hidden; }
};

using RenderViewTest = RenderStage;

// ── Choice of the backend ─────────────────────────────────────────────────────────────────────────

TEST(BackendsTest, metalIsChosenWhereItExistsAndIsNotSwitchedOff) {
  EXPECT_EQ(chooseBackend(false, true), RenderBackend::metal);
  EXPECT_EQ(chooseBackend(true, true), RenderBackend::openGL);
  EXPECT_EQ(chooseBackend(false, false), RenderBackend::openGL);
  EXPECT_EQ(chooseBackend(true, false), RenderBackend::openGL);
}

TEST(BackendsTest, theMetalFactoryIsAskedOnlyWithADeviceAndWithoutTheUserDefault) {
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
  const auto overlay = std::make_shared<NSView>(CGRectZero);
  view->addSubview(overlay);
  ASSERT_EQ(view->subviews().size(), 2u);
  EXPECT_EQ(view->subviews()[1], overlay);
  EXPECT_EQ(view->subviews()[0]->autoresizingMask(), 18u);
  EXPECT_TRUE(view->autoresizesSubviews());
  view->setFrame(CGRectMake(3, 4, 111, 77));
  EXPECT_EQ(view->subviews()[0]->frame(), CGRectMake(0, 0, 111, 77));
}

TEST_F(RenderViewTest, hidingReachesTheBackendAndStopsItsRefreshes) {
  EXPECT_EQ(machine->openGL().liveDrivers(), 1u);
  view->setHidden(true);
  EXPECT_TRUE(view->subviews()[0]->isHidden());
  EXPECT_EQ(machine->openGL().liveDrivers(), 0u);
  view->setHidden(false);
  EXPECT_FALSE(view->subviews()[0]->isHidden());
  EXPECT_EQ(machine->openGL().liveDrivers(), 1u);
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

TEST_F(RenderViewTest, settingsReadAsSetAndStartWithTheirDefaults) {
  EXPECT_EQ(view->contentSize(), (CGSize{0, 0}));
  EXPECT_EQ(view->backgroundColor(), nullptr);
  EXPECT_EQ(view->blurRadius(), 0);
  EXPECT_FALSE(view->automaticallyAdjustsFitMode() || view->fitInBounds() || view->rotateAnimationEnabled());
  const auto color = NSColor::deviceRGB(0.1, 0.2, 0.3);
  view->setBackgroundColor(color);
  view->setBlurRadius(0.25f);
  view->setAutomaticallyAdjustsFitMode(true);
  view->setFitInBounds(true);
  view->setRotateAnimationEnabled(true);
  auto delegate = std::make_shared<RenderViewDelegate>();
  view->setDelegate(delegate);
  EXPECT_EQ(view->delegate(), delegate);
  delegate.reset();
  EXPECT_EQ(view->delegate(), nullptr);
  EXPECT_EQ(view->backgroundColor(), color);
  EXPECT_EQ(view->blurRadius(), 0.25f);
  EXPECT_TRUE(view->automaticallyAdjustsFitMode() && view->fitInBounds() && view->rotateAnimationEnabled());
}

TEST_F(RenderViewTest, imageBufferAndDataSourceAreOneSlot) {
  view->setImageBuffer(buffer);
  EXPECT_EQ(view->dataSource(), buffer);
  EXPECT_EQ(view->imageBuffer(), buffer);
  const auto other = std::make_shared<PlainSource>();
  view->setDataSource(other);
  EXPECT_EQ(view->imageBuffer(), nullptr);
  EXPECT_EQ(view->dataSource(), other);
  view->setImageBuffer(nullptr);
  EXPECT_EQ(view->dataSource(), nullptr);
}

TEST_F(RenderViewTest, deviceTypeAndItsCasesAreOneSetting) {
  EXPECT_EQ(view->deviceTypeObjC(), DeviceType::unspecified);
  view->setDeviceTypeObjC(DeviceType::type1);
  EXPECT_EQ(view->deviceType(), 1);
  view->setDeviceTypeObjC(DeviceType::type0);
  EXPECT_EQ(view->deviceType(), 0);
  EXPECT_EQ(view->deviceTypeObjC(), DeviceType::type0);
  view->setDeviceType(7);
  EXPECT_EQ(view->deviceTypeObjC(), DeviceType::unspecified);
  view->setDeviceTypeObjC(DeviceType::unspecified);
  EXPECT_EQ(view->deviceType(), std::nullopt);
  EXPECT_EQ(makeDeviceType(2), std::nullopt);
  EXPECT_EQ(makeDeviceType(-2), std::nullopt);
  EXPECT_EQ(makeDeviceType(-1), DeviceType::unspecified);
}

TEST_F(RenderViewTest, anObserverThatThrowsHarmsNobody) {
  view->observeContentSize([](CGSize) { throw std::runtime_error("no room"); });
  view->setContentSize({3, 2});
  EXPECT_EQ(view->contentSize(), (CGSize{3, 2}));
  EXPECT_THAT(machine->systemLog().troubles(), ElementsAre(HasSubstr("no room")));
}

// ── Sources ───────────────────────────────────────────────────────────────────────────────────────

TEST_F(RenderViewTest, settingASourceIsLoggedWithItsDescription) {
  log.clear();
  view->setImageBuffer(buffer);
  view->setImageBuffer(nullptr);
  EXPECT_THAT(log.messages(LogLevel::info),
              ElementsAre("[RenderView:OpenGL:1] setDataSource " + buffer->description(),
                          "[RenderView:OpenGL:1] setDataSource <nil>"));
  EXPECT_THAT(dataSourceDescription(std::make_shared<BadlyDescribedSource>()),
              HasSubstr("BadlyDescribedSource: 0x"));
}

TEST_F(RenderViewTest, settingASourceOffTheMainThreadIsAnErrorLineAndStillDone) {
  log.clear();
  std::thread([&] { view->setImageBuffer(buffer); }).join();
  EXPECT_THAT(log.messages(LogLevel::error),
              ElementsAre("[RenderView:OpenGL:1] must not update image buffer not on the main thread"));
  EXPECT_THAT(log.messages(),
              ElementsAre(testing::EndsWith("not on the main thread"), HasSubstr(" setDataSource <")));
  EXPECT_EQ(view->imageBuffer(), buffer);
}

TEST(QelVideoImageBufferTest, itsDataIsASnapshotWithAReferenceOfItsOwn) {
  QelKit::QelVideoImageBuffer buffer;
  EXPECT_FALSE(buffer.hasImage());
  const auto empty = buffer.data();
  EXPECT_EQ(empty->pixelBuffer(), nullptr);
  EXPECT_EQ(empty->timestamp(), 0);

  const auto frame = makeFrame(8, 6);
  buffer.setImage(frame, 2.5, CGImagePropertyOrientation::left, 3, 1);
  EXPECT_TRUE(buffer.hasImage());
  EXPECT_EQ(buffer.timestamp(), 2.5);
  const auto data = buffer.data();
  buffer.setImage(nullptr, 4);
  EXPECT_EQ(data->pixelBuffer(), frame);
  EXPECT_EQ(data->timestamp(), 2.5);
  EXPECT_EQ(data->orientation(), CGImagePropertyOrientation::left);
  EXPECT_EQ(data->deviceID(), 3);
  EXPECT_EQ(data->deviceType(), 1);
  EXPECT_FALSE(buffer.hasImage());
  EXPECT_EQ(buffer.data()->timestamp(), 4);
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
