#include <QelUtilVideo/ObjectRuntime.h>

#include "catalogue/Members.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/CapturableCamera.h>
#include <QelUtilVideo/CapturableOutputDelegate.h>
#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindow.h>
#include <QelUtilVideo/CapturableWindowManager.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/NSCoder.h>
#include <QelUtilVideo/platform/NSColor.h>
#include <QelUtilVideo/platform/NotificationCenter.h>

#include <algorithm>
#include <array>

namespace QelUtilVideo {

namespace catalogue {

// ── Names ─────────────────────────────────────────────────────────────────────────────────────────

template <>
struct ObjectName<std::string> {
  static constexpr std::string_view name = "NSString";
};
template <class T>
struct ObjectName<std::vector<T>> {
  static constexpr std::string_view name = "NSArray";
};
template <>
struct ObjectName<NSError> {
  static constexpr std::string_view name = "NSError";
};
template <>
struct ObjectName<Dictionary> {
  static constexpr std::string_view name = "NSDictionary";
};
template <>
struct ObjectName<NSObject> {
  static constexpr std::string_view name = "NSObject";
};
template <>
struct ObjectName<NSScreen> {
  static constexpr std::string_view name = "NSScreen";
};
template <>
struct ObjectName<NSImage> {
  static constexpr std::string_view name = "NSImage";
};
template <>
struct ObjectName<NSColor> {
  static constexpr std::string_view name = "NSColor";
};
template <>
struct ObjectName<NSCoder> {
  static constexpr std::string_view name = "NSCoder";
};
template <>
struct ObjectName<NSNotification> {
  static constexpr std::string_view name = "NSNotification";
};
template <>
struct ObjectName<AVCaptureDevice> {
  static constexpr std::string_view name = "AVCaptureDevice";
};
template <>
struct ObjectName<AVCaptureSession> {
  static constexpr std::string_view name = "AVCaptureSession";
};
template <>
struct ObjectName<AVCaptureInput> {
  static constexpr std::string_view name = "AVCaptureInput";
};
template <>
struct ObjectName<AVCaptureVideoDataOutput> {
  static constexpr std::string_view name = "AVCaptureVideoDataOutput";
};
template <>
struct ObjectName<QelKit::QelVideoImageBuffer> {
  static constexpr std::string_view name = "QelVideoImageBuffer";
};
template <>
struct ObjectName<RenderView> {
  static constexpr std::string_view name = "QelUtilVideoRenderView";
};
// Protocols stand in angle brackets.
template <>
struct ObjectName<Capturable> {
  static constexpr std::string_view name = "<QelUtilVideoCapturable>";
};
template <>
struct ObjectName<CapturableOutputDelegate> {
  static constexpr std::string_view name = "<QelUtilVideoCapturableOutputDelegate>";
};
template <>
struct ObjectName<RenderViewDelegate> {
  static constexpr std::string_view name = "<QelUtilVideoRenderViewDelegate>";
};

namespace {

// ── Members, in the order of their declarations ───────────────────────────────────────────────────

constexpr std::array capturable{
    property<&Capturable::uniqueID>("uniqueID"),
    property<&Capturable::name>("name"),
    property<&Capturable::isAvailable>("isAvailable"),
    property<&Capturable::isCamera>("isCamera"),
    property<&Capturable::isScreen>("isScreen"),
    property<&Capturable::isWindow>("isWindow"),
    property<&Capturable::delegate>("delegate"),
    protocolMethod<&Capturable::start>("startWithDelegate:error:"),
    protocolMethod<&Capturable::stop>("stop"),
};

constexpr std::array capturableScreen{
    property<&CapturableScreen::displayID>("displayID"),
    property<&CapturableScreen::screen>("screen"),
    property<&CapturableScreen::snapshotImage>("snapshotImage"),
};

constexpr std::array capturableWindow{
    property<&CapturableWindow::processIdentifier>("processIdentifier"),
    property<&CapturableWindow::windowID>("windowID"),
    property<&CapturableWindow::windowName>("windowName"),
    property<&CapturableWindow::isOnScreen>("isOnScreen"),
    property<&CapturableWindow::frame>("frame"),
    property<&CapturableWindow::snapshotImage>("snapshotImage"),
};

constexpr std::array capturableCamera{
    property<&CapturableCamera::device>("device"),
    property<&CapturableCamera::captureSession>("captureSession"),
    property<&CapturableCamera::captureInput>("captureInput"),
    property<&CapturableCamera::captureOutput>("captureOutput"),
};

using Output = CapturableOutputDelegate;
constexpr std::array outputDelegate{
    protocolMethod<&Output::capturableWillStartRunning>("capturableWillStartRunning:"),
    protocolMethod<&Output::capturableDidFailToStartRunning>("capturableDidFailToStartRunning:error:"),
    protocolMethod<&Output::capturableDidStartRunning>("capturableDidStartRunning:"),
    protocolMethod<&Output::capturableDidStopRunning>("capturableDidStopRunning:error:"),
    protocolMethod<&Output::capturableDidBeginInterruption>("capturableDidBeginInterruption:userInfo:"),
    protocolMethod<&Output::capturableDidEndInterruption>("capturableDidEndInterruption:"),
    protocolMethod<&Output::capturableDidOutput>("capturableDidOutput:pixelBuffer:timestamp:"),
};

constexpr std::array renderViewDelegate{
    protocolMethod<&RenderViewDelegate::renderViewWillRender>("renderViewWillRender:", false),
};

using Object = std::shared_ptr<NSObject>;

constexpr std::array windowManager{
    property<&CapturableWindowManager::didRefreshNotification>("didRefreshNotification"),
    property<&CapturableWindowManager::screens>("screens"),
    // What the notification centre calls by name; in C++ it is a function of the library's own.
    instanceMethod<void(const NSNotification&)>("updateScreens:"),
    instanceMethod<Object()>("init"),
};

// A flag whose getter is called otherwise than the flag.
constexpr Text hiddenAttributes =
    Text(attributesOf<&RenderView::isHidden, &RenderView::setHidden>.view()).add(",GisHidden");

constexpr std::array renderView{
    property<&RenderView::delegate, &RenderView::setDelegate>("delegate"),
    property<&RenderView::imageBuffer, &RenderView::setImageBuffer>("imageBuffer"),
    property<&RenderView::deviceTypeObjC, &RenderView::setDeviceTypeObjC>("deviceType"),
    property<&RenderView::backgroundColor, &RenderView::setBackgroundColor>("backgroundColor"),
    property<&RenderView::blurRadius, &RenderView::setBlurRadius>("blurRadius"),
    property<&RenderView::automaticallyAdjustsFitMode, &RenderView::setAutomaticallyAdjustsFitMode>(
        "automaticallyAdjustsFitMode"),
    property<&RenderView::fitInBounds, &RenderView::setFitInBounds>("fitInBounds"),
    property<&RenderView::rotateAnimationEnabled, &RenderView::setRotateAnimationEnabled>(
        "rotateAnimationEnabled"),
    property<&RenderView::contentSize, Setter::ofTheLibrary>("contentSize"),
    PublishedMember{PublishedMember::Kind::property, "hidden", hiddenAttributes.view(), true},
    instanceMethod<Object(CGRect)>("initWithFrame:"),
    instanceMethod<Object(NSCoder&)>("initWithCoder:"),
};

// ── Classes and protocols ─────────────────────────────────────────────────────────────────────────

using Kind = PublishedType::Kind;

constexpr std::array<PublishedType, 8> types{{
    {Kind::protocol, "QelUtilVideoCapturable", "NSObject", capturable},
    {Kind::protocol, "QelUtilVideoCapturableScreen", "QelUtilVideoCapturable", capturableScreen},
    {Kind::protocol, "QelUtilVideoCapturableWindow", "QelUtilVideoCapturable", capturableWindow},
    {Kind::protocol, "QelUtilVideoCapturableCamera", "QelUtilVideoCapturable", capturableCamera},
    {Kind::protocol, "QelUtilVideoCapturableOutputDelegate", "", outputDelegate},
    {Kind::protocol, "QelUtilVideoRenderViewDelegate", "", renderViewDelegate},
    {Kind::classType, "QelUtilVideoCapturableWindowManager", "NSObject", windowManager},
    {Kind::classType, "QelUtilVideoRenderView", "NSView", renderView},
}};

}  // namespace
}  // namespace catalogue

const PublishedType* findPublished(std::string_view name) {
  const auto found = std::ranges::find(catalogue::types, name, &PublishedType::name);
  return found == catalogue::types.end() ? nullptr : &*found;
}

std::span<const PublishedType> publishedTypes() { return catalogue::types; }

}  // namespace QelUtilVideo
