#include <QelUtilVideo/ObjectRuntime.h>

#include "catalogue/Members.h"
#include "catalogue/Names.h"

#include <algorithm>
#include <array>

namespace QelUtilVideo {

namespace catalogue {

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
    property<&CapturableWindowManager::windows>("windows"),
    classMethod<&CapturableWindowManager::setOverlay>("setOverlayWithWindowLevel:processIdentifier:"),
    classMethod<&CapturableWindowManager::clearOverlay>("clearOverlay"),
    // What the notification centre calls by name; in C++ it is a function of the library's own.
    instanceMethod<void(const NSNotification&)>("updateScreens:"),
    instanceMethod<Object()>("init"),
};

constexpr std::array deviceManager{
    property<&CapturableDeviceManager::didRefreshNotification>("didRefreshNotification"),
    property<&CapturableDeviceManager::cameraDevices>("cameraDevices"),
    property<&CapturableDeviceManager::screenDevices>("screenDevices"),
    property<&CapturableDeviceManager::allDevices>("allDevices"),
    classMethod<&CapturableDeviceManager::device>("deviceWithUniqueID:"),
    // What the notification centre calls by name.
    instanceMethod<void(const NSNotification&)>("deviceWasConnected:"),
    instanceMethod<void(const NSNotification&)>("deviceWasDisconnected:"),
    instanceMethod<void(const NSNotification&)>("didChangeScreenParameters:"),
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

constexpr std::array types{
    published<Capturable, NSObject>(capturable),
    published<CapturableScreen, Capturable>(capturableScreen),
    published<CapturableWindow, Capturable>(capturableWindow),
    published<CapturableCamera, Capturable>(capturableCamera),
    published<CapturableOutputDelegate>(outputDelegate),
    published<RenderViewDelegate>(renderViewDelegate),
    published<CapturableWindowManager, NSObject>(windowManager),
    published<CapturableDeviceManager, NSObject>(deviceManager),
    published<RenderView, NSView>(renderView),
};

}  // namespace
}  // namespace catalogue

const PublishedType* findPublished(std::string_view name) {
  const auto found = std::ranges::find(catalogue::types, name, &PublishedType::name);
  return found == catalogue::types.end() ? nullptr : &*found;
}

std::span<const PublishedType> publishedTypes() { return catalogue::types; }

}  // namespace QelUtilVideo
