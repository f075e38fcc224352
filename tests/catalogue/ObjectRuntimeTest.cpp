#include <QelUtilVideo/ObjectRuntime.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include <string>
#include <vector>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;

/// "name encoding", with a mark for what is no property, and one for what is optional.
std::vector<std::string> members(std::string_view type) {
  const PublishedType* found = findPublished(type);
  std::vector<std::string> lines;
  for (const PublishedMember& member : found ? found->members : std::span<const PublishedMember>{}) {
    constexpr std::array marks{"", "+", "-", "+-"};  // in the order of the kinds
    lines.push_back(marks.at(static_cast<std::size_t>(member.kind)) + std::string(member.name) + " " +
                    std::string(member.encoding) + (member.isRequired ? "" : " optional"));
  }
  return lines;
}

std::string base(std::string_view type) {
  const PublishedType* found = findPublished(type);
  return found ? std::string(found->base) : "not published";
}

TEST(ObjectRuntime, sourcesArePublishedWithTheseMembers) {
  EXPECT_THAT(members("QelUtilVideoCapturable"),
              ElementsAre("uniqueID T@\"NSString\",N,R", "name T@\"NSString\",N,R", "isAvailable TB,N,R",
                          "isCamera TB,N,R", "isScreen TB,N,R", "isWindow TB,N,R",
                          "delegate T@\"<QelUtilVideoCapturableOutputDelegate>\",N,R",
                          "-startWithDelegate:error: "
                          "B32@0:8@\"<QelUtilVideoCapturableOutputDelegate>\"16^@24",
                          "-stop v16@0:8"));
  EXPECT_THAT(
      members("QelUtilVideoCapturableScreen"),
      ElementsAre("displayID TI,N,R", "screen T@\"NSScreen\",N,R", "snapshotImage T@\"NSImage\",N,R"));
  EXPECT_THAT(members("QelUtilVideoCapturableWindow"),
              ElementsAre("processIdentifier Ti,N,R", "windowID TI,N,R", "windowName T@\"NSString\",N,R",
                          "isOnScreen TB,N,R", "frame T{CGRect={CGPoint=dd}{CGSize=dd}},N,R",
                          "snapshotImage T@\"NSImage\",N,R"));
  EXPECT_THAT(members("QelUtilVideoCapturableCamera"),
              ElementsAre("device T@\"AVCaptureDevice\",N,R", "captureSession T@\"AVCaptureSession\",N,R",
                          "captureInput T@\"AVCaptureInput\",N,R",
                          "captureOutput T@\"AVCaptureVideoDataOutput\",N,R"));
  EXPECT_EQ(base("QelUtilVideoCapturable"), "NSObject");
  for (const char* kind : {"Screen", "Window", "Camera"}) {
    EXPECT_EQ(base(std::string("QelUtilVideoCapturable") + kind), "QelUtilVideoCapturable");
  }
}

TEST(ObjectRuntime, delegatesArePublishedWithTheseMembers) {
  const std::string source = "@\"<QelUtilVideoCapturable>\"16";
  EXPECT_THAT(
      members("QelUtilVideoCapturableOutputDelegate"),
      ElementsAre("-capturableWillStartRunning: v24@0:8" + source,
                  "-capturableDidFailToStartRunning:error: v32@0:8" + source + "@\"NSError\"24",
                  "-capturableDidStartRunning: v24@0:8" + source,
                  "-capturableDidStopRunning:error: v32@0:8" + source + "@\"NSError\"24",
                  "-capturableDidBeginInterruption:userInfo: v32@0:8" + source + "@\"NSDictionary\"24",
                  "-capturableDidEndInterruption: v24@0:8" + source,
                  "-capturableDidOutput:pixelBuffer:timestamp: v40@0:8" + source + "^{__CVBuffer=}24d32"));
  EXPECT_EQ(base("QelUtilVideoCapturableOutputDelegate"), "");
  EXPECT_THAT(members("QelUtilVideoRenderViewDelegate"),
              ElementsAre("-renderViewWillRender: v24@0:8@\"QelUtilVideoRenderView\"16 optional"));
}

TEST(ObjectRuntime, classesArePublishedWithTheseMembers) {
  EXPECT_THAT(members("QelUtilVideoCapturableWindowManager"),
              ElementsAre("+didRefreshNotification T@\"NSString\",N,R", "+screens T@\"NSArray\",N,R",
                          "+windows T@\"NSArray\",N,R",
                          "+-setOverlayWithWindowLevel:processIdentifier: v28@0:8q16i24",
                          "+-clearOverlay v16@0:8", "-updateScreens: v24@0:8@16", "-init @16@0:8"));
  EXPECT_THAT(members("QelUtilVideoCapturableDeviceManager"),
              ElementsAre("+didRefreshNotification T@\"NSString\",N,R", "+cameraDevices T@\"NSArray\",N,R",
                          "+screenDevices T@\"NSArray\",N,R", "+allDevices T@\"NSArray\",N,R",
                          "+-deviceWithUniqueID: @24@0:8@16", "-deviceWasConnected: v24@0:8@16",
                          "-deviceWasDisconnected: v24@0:8@16", "-didChangeScreenParameters: v24@0:8@16",
                          "-init @16@0:8"));
  EXPECT_THAT(
      members("QelUtilVideoRenderView"),
      ElementsAre("delegate T@\"<QelUtilVideoRenderViewDelegate>\",N,W",
                  "imageBuffer T@\"QelVideoImageBuffer\",N,&", "deviceType Tq,N",
                  "backgroundColor T@\"NSColor\",N,&", "blurRadius Tf,N", "automaticallyAdjustsFitMode TB,N",
                  "fitInBounds TB,N", "rotateAnimationEnabled TB,N", "contentSize T{CGSize=dd},N",
                  "hidden TB,N,GisHidden", "-initWithFrame: @48@0:8{CGRect={CGPoint=dd}{CGSize=dd}}16",
                  "-initWithCoder: @24@0:8@16"));
  EXPECT_EQ(base("QelUtilVideoRenderView"), "NSView");
}

TEST(ObjectRuntime, everyTypeIsFoundByItsNameAndNothingElseIs) {
  for (const PublishedType& type : publishedTypes()) EXPECT_EQ(findPublished(type.name), &type);
  for (const char* unknown : {"", "RenderView", "QelUtilVideoRenderViewX", "qelutilvideorenderview"}) {
    EXPECT_EQ(findPublished(unknown), nullptr);
  }
}

}  // namespace
}  // namespace QelUtilVideo
